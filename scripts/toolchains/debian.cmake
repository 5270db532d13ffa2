# What the toolchain files of this folder share: Debian's cross compiler for `triple`, against a Debian root folder of
# that architecture. qemu-user runs the programs that the build and the tests start.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triple}-gcc-12)
set(CMAKE_CXX_COMPILER ${triple}-g++-12)
set(CMAKE_LIBRARY_ARCHITECTURE ${triple})

set(ORVEX_ROOT "${CMAKE_CURRENT_LIST_DIR}/../../build/processors/${architecture}/root" CACHE PATH
    "A root folder of the camera's processor, with the libraries and headers that the build requires")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVEX_ROOT)
get_filename_component(CMAKE_SYSROOT "${ORVEX_ROOT}" ABSOLUTE)
if(NOT IS_DIRECTORY "${CMAKE_SYSROOT}/usr/include")
  message(FATAL_ERROR "${CMAKE_SYSROOT} is no root folder with headers: run tests/compat/processors --build ${architecture}, "
    "or set ORVEX_ROOT to the camera's")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${triple}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# -L: the root folder has the program's loader and libraries.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${emulator}-static -L ${CMAKE_SYSROOT})
