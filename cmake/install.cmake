# What is installed where: the component "runtime" is what a device needs, "development" what its
# builder needs besides.
include(CMakePackageConfigHelpers)

option(ZEL_RELOCATABLE "Let the installed tree be moved: libraries find one another by their place" ON)
set(private_dir zel-thumbnail-flash-cache)
if(ZEL_RELOCATABLE)
    file(RELATIVE_PATH lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set(rpath_of_libraries $ORIGIN)
    set(rpath_of_private $ORIGIN/..)
    set(rpath_of_command $ORIGIN/${lib_from_bin})
endif()

set_target_properties(zel-thumbnail-flash-cache PROPERTIES INSTALL_RPATH "${rpath_of_libraries}")
install(TARGETS zel-thumbnail-flash-cache
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
        NAMELINK_COMPONENT development)
install(FILES include/zel_thumbnail_flash_cache.h include/zel_thumbnail_flash_cache_events.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development)

# A device has platform libraries of its own, which it names in the cache.
foreach(service zel-platform-log zel-platform-media-content zel-content-agent)
    get_target_property(is_the_devices ${service} IMPORTED)
    if(NOT is_the_devices)
        set_target_properties(${service} PROPERTIES
            INSTALL_RPATH "${rpath_of_libraries};$ORIGIN/${private_dir}")
        install(TARGETS ${service} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
    endif()
endforeach()
if(TARGET zel-linux-devices)
    set_target_properties(zel-linux-devices PROPERTIES INSTALL_RPATH "${rpath_of_private}")
    install(TARGETS zel-linux-devices
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${private_dir} COMPONENT runtime)
endif()

if(TARGET zel-thumbnail-cache)
    set_target_properties(zel-thumbnail-cache PROPERTIES INSTALL_RPATH "${rpath_of_command}")
    install(TARGETS zel-thumbnail-cache DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
    install(FILES tools/zel-thumbnail-cache.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
            COMPONENT runtime)
    install(FILES contrib/completions/zel-thumbnail-cache
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT runtime)
    install(FILES contrib/zel-thumbnail-cache.service DESTINATION lib/systemd/system
            COMPONENT runtime)
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zel-thumbnail-flash-cache)
configure_package_config_file(
    cmake/zel-thumbnail-flash-cache-config.cmake.in zel-thumbnail-flash-cache-config.cmake
    INSTALL_DESTINATION ${package_dir}
    PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(zel-thumbnail-flash-cache-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zel-thumbnail-flash-cache-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/zel-thumbnail-flash-cache-config-version.cmake
        DESTINATION ${package_dir} COMPONENT development)

file(RELATIVE_PATH PREFIX_FROM_PC ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/zel-thumbnail-flash-cache.pc.in zel-thumbnail-flash-cache.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zel-thumbnail-flash-cache.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
