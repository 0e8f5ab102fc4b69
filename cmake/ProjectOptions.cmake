# Compiler flags shared by every target of the project. The conversion warnings catch
# what differs between the PC and the projector's 32-bit ARM (a 64-bit value cut into a
# size_t or long, a plain char that is signed on one and unsigned on the other).
add_compile_options(-Wall -Wextra -Wconversion -Wsign-conversion)

# On a 32-bit target (the projector's ARM computer) off_t and time_t are 32 bits unless
# asked otherwise: readdir would fail with EOVERFLOW on file systems with 64-bit
# directory offsets, and times would wrap in January 2038. Every file and time interface
# of the code is therefore the 64-bit one. No library the code links takes an off_t or
# time_t across its interface, so this is safe to choose for the project alone.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
# GCC's ARM notes that the passing of some arguments changed in GCC 7.1 concern mixing
# objects of compilers from before and after; everything here comes from one compiler.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    add_compile_options(-Wno-psabi)
endif()
if(PROJ_WERROR)
    add_compile_options(-Werror)
endif()

if(PROJ_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
    # g++ 12's flow analysis reports false "maybe uninitialized" findings inside the
    # standard library (std::regex, std::function) once ASan instruments it.
    add_compile_options(-Wno-maybe-uninitialized)
endif()

if(PROJ_THREAD_SANITIZE)
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
    add_compile_options(-Wno-maybe-uninitialized -Wno-tsan)  # std::atomic_thread_fence is not instrumented
endif()

if(PROJ_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "PROJ_FUZZ needs clang (configure with CXX=clang++)")
    endif()
    # Every object is instrumented for coverage; only the fuzz executables link libFuzzer's main.
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()
