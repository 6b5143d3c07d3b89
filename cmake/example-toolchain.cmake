# An example: 64-bit Arm with Debian's cross compiler and the device's root file system. Give the
# folder of the latter in the environment variable ZEL_SYSROOT.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_SYSROOT $ENV{ZEL_SYSROOT})
set(ENV{PKG_CONFIG_SYSROOT_DIR} $ENV{ZEL_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} $ENV{ZEL_SYSROOT}/usr/lib/aarch64-linux-gnu/pkgconfig)

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
