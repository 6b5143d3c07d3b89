# Debian's cross compiler with the root file system of a device. The environment says which:
# ZEL_TARGET is the prefix of the compiler, for instance arm-linux-gnueabihf, and ZEL_SYSROOT the folder
# of the root file system. ZEL_EMULATOR is the command that runs what is built, for the tests, with
# semicolons between its words; there may be none.
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR $ENV{ZEL_TARGET})
set(CMAKE_C_COMPILER $ENV{ZEL_TARGET}-gcc)
set(CMAKE_CXX_COMPILER $ENV{ZEL_TARGET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE $ENV{ZEL_TARGET})
set(CMAKE_SYSROOT $ENV{ZEL_SYSROOT})
set(CMAKE_CROSSCOMPILING_EMULATOR $ENV{ZEL_EMULATOR})
set(ENV{PKG_CONFIG_SYSROOT_DIR} $ENV{ZEL_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    $ENV{ZEL_SYSROOT}/usr/lib/$ENV{ZEL_TARGET}/pkgconfig:$ENV{ZEL_SYSROOT}/usr/share/pkgconfig)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL arm)
    set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # every part is built by one compiler
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
