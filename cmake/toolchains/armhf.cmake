# Raspberry Pi 4 Model B and 3 Model A+ under a 32-bit system. Debian's baseline is ARMv7: not for a Zero W.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm-static -cpu cortex-a7)
set(unpacked ${CMAKE_CURRENT_LIST_DIR}/../../build/cross/armhf/lib)
# GCC says of each call that its release 7 changed the convention; nothing here meets code of an older one.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
