# Exactly the public headers are installed, and each compiles alone, as C11 and as C++20, without a warning.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

file(GLOB_RECURSE headers RELATIVE "${include_dir}" "${include_dir}/*")
file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/headers.txt" public_headers)
expect_same_lines("installed headers" "${headers}" "${public_headers}")

set(strict -Wall -Wextra -Wpedantic -Werror -fsyntax-only "-I${include_dir}")
file(MAKE_DIRECTORY "${work_dir}")
foreach(header IN LISTS headers)
    if(header MATCHES "\\.h$")
        file(WRITE "${work_dir}/alone.c" "#include <${header}>\ntypedef int notEmpty;\n")
        run("${c_compiler}" -std=c11 ${strict} "${work_dir}/alone.c")
    endif()
    if(header STREQUAL kip/opencv.hpp)
        continue() # needs OpenCV, and is built by tests of its own
    endif()
    file(WRITE "${work_dir}/alone.cpp" "#include <${header}>\n")
    run("${cxx_compiler}" -std=c++20 ${strict} "${work_dir}/alone.cpp")
endforeach()
