# What the three cross toolchains share: Debian's cross compiler for `triplet`, libraries from packages of that
# architecture (they live side by side in /usr/lib/TRIPLET), and `emulator` to run what was built, so that CTest runs
# the tests on the build machine. `scripts/cross-setup` installs all of it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator})
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(PKG_CONFIG_EXECUTABLE ${triplet}-pkg-config)
