# 32-bit ARM with hardware floating point (ARMv7), as Debian's armhf.
set(architecture armhf)
set(triple arm-linux-gnueabihf)
set(emulator arm)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # notes about compilers before GCC 7
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
