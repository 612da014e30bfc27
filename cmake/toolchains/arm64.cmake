# Raspberry Pi 4 Model B and 3 Model A+ under a 64-bit system.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(triplet aarch64-linux-gnu)
set(emulator qemu-aarch64-static -cpu cortex-a53)
set(unpacked ${CMAKE_CURRENT_LIST_DIR}/../../build/cross/arm64/lib)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
