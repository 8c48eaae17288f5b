# The README's C++ program against the installed package: the same pixels as the tool's of the same rectangle.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

file(MAKE_DIRECTORY "${work_dir}")
set(program "${work_dir}/ten_lines")
run("${cxx_compiler}" -std=c++20 -Wall -Wextra -Wpedantic -Werror ${sanitize_flags} "-I${include_dir}"
    "${source_dir}/examples/ten_lines/ten_lines.cpp" "-L${library_dir}" -lkip -lkip_services "-Wl,-rpath,${library_dir}"
    -o "${program}")
set(tool "${build_dir}/tools/kip")
run("${tool}" scene "${work_dir}/scene.pgm")
run("${tool}" transform "${work_dir}/scene.pgm" "${work_dir}/page.pgm" --rect 0,0,384,191)
run("${tool}" transform "${work_dir}/page.pgm" "${work_dir}/line.pgm" --rect 3,117,172,21 --angle 2.25)
# Pixels are a file's last bytes.
execute_process(COMMAND tail -c 73344 "${work_dir}/page.pgm" COMMAND "${program}"
    OUTPUT_FILE "${work_dir}/by-example" COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND tail -c 3612 "${work_dir}/line.pgm" OUTPUT_FILE "${work_dir}/by-tool" COMMAND_ERROR_IS_FATAL ANY)
run("${CMAKE_COMMAND}" -E compare_files "${work_dir}/by-example" "${work_dir}/by-tool")
