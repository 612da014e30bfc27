# Raspberry Pi Zero W, an ARM1176 (ARMv6K). Debian's baseline for armel is ARMv5, which has no atomic instructions;
# this processor has them for 1, 2, 4 and 8 bytes. Executables are static: the 32-bit Raspberry Pi OS that runs on this
# board has libraries of another calling convention.
set(CMAKE_SYSTEM_PROCESSOR armv6l)
set(triplet arm-linux-gnueabi)
set(emulator qemu-arm-static -cpu arm1176)
set(CMAKE_C_FLAGS_INIT "-mcpu=arm1176jzf-s -marm")
# GCC says of each call that its release 7 changed the convention; nothing here meets code of an older one.
set(CMAKE_CXX_FLAGS_INIT "-mcpu=arm1176jzf-s -marm -Wno-psabi")
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
