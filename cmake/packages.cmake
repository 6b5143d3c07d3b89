# Two Debian packages, made by cpack: what runs, and what is built with.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The maintainers of ${PROJECT_NAME} <maintainers@example.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzel-thumbnail-flash-cache${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "Persistent cache of thumbnails on internal flash
 Keeps thumbnails of pictures on USB sticks and PTP cameras below 100 MiB,
 across restarts and re-attachments. With the command zel-thumbnail-cache.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src
    ${PROJECT_BINARY_DIR}/platform/linux)
# The installed library rather than the one in the build tree, and ldconfig after the installation.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzel-thumbnail-flash-cache-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "Thumbnail cache on internal flash, development files
 The header, and what pkg-config and CMake need to find the library.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libzel-thumbnail-flash-cache${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")

include(CPack)
