# What the three cross toolchains share: Debian's cross compiler for `triplet`, libraries from packages of that
# architecture (they live side by side in /usr/lib/TRIPLET), and `emulator` to run what was built, so that CTest runs
# the tests on the build machine. `scripts/cross-setup` installs all of it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
# What is linked from `unpacked` needs others that are there: the linker looks for them, and so does a test that is run.
if(unpacked)
    list(APPEND emulator -E LD_LIBRARY_PATH=${unpacked})
    set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,${unpacked})
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator})
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(PKG_CONFIG_EXECUTABLE ${triplet}-pkg-config)
