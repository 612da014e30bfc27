# Language, warnings and sanitizers of every target. Warnings are errors in the project's own presets
# (CMAKE_COMPILE_WARNING_AS_ERROR), so that a newer compiler than ours still builds it for its user.
find_package(Threads REQUIRED)

set(ARDENVUE_SANITIZE "" CACHE STRING "Value of -fsanitize=, empty for none")
option(ARDENVUE_CCACHE "Compile through ccache" OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release)
endif()

if(ARDENVUE_CCACHE)
    find_program(ARDENVUE_CCACHE_PROGRAM ccache REQUIRED)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ARDENVUE_CCACHE_PROGRAM})
    set(CMAKE_C_COMPILER_LAUNCHER ${ARDENVUE_CCACHE_PROGRAM})
endif()

set(ARDENVUE_WARNINGS -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
add_library(ardenvue_flags INTERFACE)
# _FILE_OFFSET_BITS and _TIME_BITS: 64-bit file sizes and clocks on the 32-bit boards, past 2038.
target_compile_definitions(ardenvue_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(ardenvue_flags INTERFACE ${ARDENVUE_WARNINGS})
if(ARDENVUE_SANITIZE)
    # The runtime is linked in statically: its wrappers then come before the simulated board's preload library in
    # symbol order, as they come before libc, so both see every call.
    target_compile_options(ardenvue_flags INTERFACE -fsanitize=${ARDENVUE_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(ardenvue_flags INTERFACE -fsanitize=${ARDENVUE_SANITIZE} -fno-sanitize-recover=all)
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        if(ARDENVUE_SANITIZE MATCHES address)
            target_link_options(ardenvue_flags INTERFACE -static-libasan)
        elseif(ARDENVUE_SANITIZE MATCHES thread)
            target_link_options(ardenvue_flags INTERFACE -static-libtsan)
        endif()
    endif()
endif()
