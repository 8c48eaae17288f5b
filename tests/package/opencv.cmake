# The example for OpenCV against the installed package: the same file as the tool makes of the same rectangle.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

list(JOIN sanitize_flags " " flags)
file(REMOVE_RECURSE "${work_dir}")
run("${CMAKE_COMMAND}" -S "${source_dir}/examples/opencv" -B "${work_dir}" -G "${generator}"
    "-DCMAKE_PREFIX_PATH=${prefix}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_BUILD_TYPE=Release
    "-DCMAKE_C_COMPILER=${c_compiler}" "-DCMAKE_CXX_COMPILER=${cxx_compiler}"
    "-DCMAKE_CXX_FLAGS=${flags} -Wall -Wextra -Werror")
run("${CMAKE_COMMAND}" --build "${work_dir}")
run("${build_dir}/tools/kip" scene "${work_dir}/scene.pgm")
run("${work_dir}/rotated_rect" "${work_dir}/scene.pgm" "${work_dir}/by-example.pgm")
run("${build_dir}/tools/kip" transform "${work_dir}/scene.pgm" "${work_dir}/by-tool.pgm"
    --rect 220.5,200.5,200,80 --angle 12.5)
run("${CMAKE_COMMAND}" -E compare_files "${work_dir}/by-example.pgm" "${work_dir}/by-tool.pgm")
