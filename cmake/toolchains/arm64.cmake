# 64-bit ARM.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(WQZ_ARCH arm64)
set(WQZ_TRIPLET aarch64-linux-gnu)
set(WQZ_DYNAMIC_LINKER ld-linux-aarch64.so.1)
set(WQZ_EMULATOR qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
