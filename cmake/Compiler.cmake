# What every target of ours is compiled with: the interface target brumecpd_flags.

# CMake's own optimised flags define NDEBUG; the assertions of this program stay in every build.
foreach(config RELEASE RELWITHDEBINFO MINSIZEREL)
    string(REGEX REPLACE "[-/]D ?NDEBUG" "" CMAKE_CXX_FLAGS_${config} "${CMAKE_CXX_FLAGS_${config}}")
endforeach()

# On 32-bit machines, too: files above 2 GiB, inodes of 64 bits, dates beyond 2038. Two kinds of sources are built with
# options of their own: those that share records with libraries whose times have 32 bits, and those that take the place
# of the C library's functions, which go by other names otherwise.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
    set(BRUMECPD_SHARES_TIMES -U_TIME_BITS)
    set(BRUMECPD_REPLACES_LIBC -U_TIME_BITS -U_FILE_OFFSET_BITS)
endif()

add_library(brumecpd_flags INTERFACE)
target_compile_features(brumecpd_flags INTERFACE cxx_std_20)
target_compile_options(brumecpd_flags INTERFACE -Wall -Wextra)
if(BRUMECPD_WERROR)
    target_compile_options(brumecpd_flags INTERFACE -Werror)
endif()
# What the stack of a fault is read from. On 32-bit ARM that is tables, which functions that throw nothing don't have
# by themselves, and which the reader misunderstands where a function keeps a frame pointer.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
    target_compile_options(brumecpd_flags INTERFACE -funwind-tables)
else()
    target_compile_options(brumecpd_flags INTERFACE -fno-omit-frame-pointer)
endif()
if(BRUMECPD_LINES_ONLY)
    target_compile_options(brumecpd_flags INTERFACE -g1)
endif()
# Templates and inline statics must not become process-wide unique symbols: they would pin a library that
# the daemon wants to close and replace.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(brumecpd_flags INTERFACE -fno-gnu-unique)
endif()

if(BRUMECPD_SANITIZER STREQUAL "address")
    # More optimisation takes half as long again to compile, and merges stack frames.
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -O1)
    add_link_options(-fsanitize=address,undefined)
elseif(BRUMECPD_SANITIZER STREQUAL "thread")
    add_compile_options(-fsanitize=thread)
    add_link_options(-fsanitize=thread)
elseif(NOT BRUMECPD_SANITIZER STREQUAL "none")
    message(FATAL_ERROR "BRUMECPD_SANITIZER is '${BRUMECPD_SANITIZER}', expecting none, address or thread")
endif()

if(BRUMECPD_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "BRUMECPD_FUZZ needs clang, not ${CMAKE_CXX_COMPILER_ID}")
    endif()
    # The check of function types compares addresses of type information, which a library keeps to itself.
    add_compile_options(-fsanitize=fuzzer-no-link -fno-sanitize=function)
endif()
