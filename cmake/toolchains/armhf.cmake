# 32-bit ARM with hardware floating point.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(WQZ_ARCH armhf)
set(WQZ_TRIPLET arm-linux-gnueabihf)
set(WQZ_DYNAMIC_LINKER ld-linux-armhf.so.3)
set(WQZ_EMULATOR qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
