# Compiler flags shared by every target of the project.
add_compile_options(-Wall -Wextra)
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

if(PROJ_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "PROJ_FUZZ needs clang (configure with CXX=clang++)")
    endif()
    # Every object is instrumented for coverage; only the fuzz executables link libFuzzer's main.
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()
