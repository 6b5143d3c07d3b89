# The Linux platform against mock devices. The library of umockdev that intercepts system calls is
# linked first instead of preloaded: a sanitizer's runtime then still comes before it.
add_executable(linux-platform-test
               linux_platform_test.cpp platform_events_test.cpp platform_faults_test.cpp
               platform_log_test.cpp platform_calls.cpp library_calls.cpp)
target_link_options(linux-platform-test BEFORE PRIVATE LINKER:--no-as-needed)
target_link_libraries(linux-platform-test PRIVATE
                      ${UMOCKDEV_PRELOAD_LIBRARY} zel-platform-log zel-platform-media-content
                      zel-content-agent zel-engine GTest::gmock GTest::gtest_main
                      PkgConfig::UMOCKDEV Threads::Threads ${CMAKE_DL_LIBS})
target_compile_definitions(linux-platform-test PRIVATE
    "ZEL_TEST_MOUNT_TABLES=\"${CMAKE_CURRENT_SOURCE_DIR}/mount-tables.txt\""
    "ZEL_TEST_DEVICES=\"${CMAKE_CURRENT_SOURCE_DIR}/mock-devices.umockdev\"")
# Each of these defines functions that the others' headers declare otherwise.
set_source_files_properties(platform_calls.cpp library_calls.cpp
                            PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
# Its calls to the system are to be found by the libraries, before those of the C library.
set_target_properties(linux-platform-test PROPERTIES CXX_VISIBILITY_PRESET default)

# The mock devices have a GLib thread whose synchronisation ThreadSanitizer does not see.
gtest_discover_tests(linux-platform-test PROPERTIES
                     ENVIRONMENT "TSAN_OPTIONS=ignore_noninstrumented_modules=1")
