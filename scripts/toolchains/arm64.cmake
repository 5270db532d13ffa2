# 64-bit ARM (ARMv8), as Debian's arm64.
set(architecture arm64)
set(triple aarch64-linux-gnu)
set(emulator aarch64)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
