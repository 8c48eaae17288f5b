# The example, in C and in C++, built by a bare compiler call with what pkg-config tells.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

find_program(pkg_config NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${library_dir}/pkgconfig")
run("${pkg_config}" --cflags --libs kip)
separate_arguments(flags UNIX_COMMAND "${output}")

file(MAKE_DIRECTORY "${work_dir}")
set(example "${source_dir}/examples/straighten/straighten")
set(ENV{LD_LIBRARY_PATH} "${library_dir}")
run("${c_compiler}" -std=c11 ${sanitize_flags} "${example}.c" ${flags} ${link_options} -o "${work_dir}/straighten_c")
run_example("${work_dir}/straighten_c")
run("${cxx_compiler}" -std=c++20 ${sanitize_flags} "${example}.cpp" ${flags} ${link_options} -o "${work_dir}/straighten_cpp")
run_example("${work_dir}/straighten_cpp")
