# The example, in C and in C++, built against the installed package through find_package.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

list(JOIN sanitize_flags " " flags)
file(REMOVE_RECURSE "${work_dir}")
run("${CMAKE_COMMAND}" -S "${source_dir}/examples/straighten" -B "${work_dir}" -G "${generator}" ${cross_options}
    "-DCMAKE_PREFIX_PATH=${prefix}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_BUILD_TYPE=Release
    "-DCMAKE_C_COMPILER=${c_compiler}" "-DCMAKE_CXX_COMPILER=${cxx_compiler}"
    "-DCMAKE_C_FLAGS=${flags} -Wall -Wextra -Wpedantic -Werror"
    "-DCMAKE_CXX_FLAGS=${flags} -Wall -Wextra -Wpedantic -Werror")
run("${CMAKE_COMMAND}" --build "${work_dir}")
run_example("${work_dir}/straighten_c")
run_example("${work_dir}/straighten_cpp")
