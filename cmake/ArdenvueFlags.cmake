# Compiler flags for every target, and the sanitizers. Asserts stay on in every build: they guard against faults of
# our own, cost nothing measurable, and a stop that names its line is worth more in flight than a wrong packet.
find_package(Threads REQUIRED)

set(ARDENVUE_SANITIZE "" CACHE STRING "Value of -fsanitize=, empty for none")
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2")
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g -fno-omit-frame-pointer")
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()

find_program(ARDENVUE_CCACHE ccache)
if(ARDENVUE_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ARDENVUE_CCACHE})
endif()

add_library(ardenvue_flags INTERFACE)
# _FILE_OFFSET_BITS and _TIME_BITS: 64-bit file sizes and clocks on the 32-bit boards, past 2038.
target_compile_definitions(ardenvue_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
target_compile_options(ardenvue_flags INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
if(ARDENVUE_SANITIZE)
    # The runtime is linked in statically: its wrappers then come before the simulated board's preload library in
    # symbol order, as they come before libc, so both see every call.
    target_compile_options(ardenvue_flags INTERFACE -fsanitize=${ARDENVUE_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(ardenvue_flags INTERFACE -fsanitize=${ARDENVUE_SANITIZE} -fno-sanitize-recover=all)
    if(ARDENVUE_SANITIZE MATCHES address)
        target_link_options(ardenvue_flags INTERFACE -static-libasan)
    elseif(ARDENVUE_SANITIZE MATCHES thread)
        target_link_options(ardenvue_flags INTERFACE -static-libtsan)
    endif()
endif()
