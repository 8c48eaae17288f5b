# Another project includes kip by add_subdirectory: it gets both targets, and neither tests, benchmarks nor
# tool, so that it needs none of their packages. Its sources find the headers, the configured one too.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

file(REMOVE_RECURSE "${work_dir}")
file(WRITE "${work_dir}/CMakeLists.txt" "
cmake_minimum_required(VERSION 3.25)
project(outer LANGUAGES C CXX)
add_subdirectory(\"${source_dir}\" kip)
foreach(option KIP_BUILD_TESTS KIP_BUILD_BENCH KIP_BUILD_TOOLS)
    if(\${option})
        message(FATAL_ERROR \"\${option} is on\")
    endif()
endforeach()
add_executable(outer outer.c)
target_link_libraries(outer PRIVATE kip::kip kip::services)
add_library(compiled OBJECT outer.c)
target_link_libraries(compiled PRIVATE kip::kip)
")
file(WRITE "${work_dir}/outer.c" "
#include <kip/kip.h>
#if KIP_VERSION_MAJOR * 10000 + KIP_VERSION_MINOR * 100 + KIP_VERSION_PATCH < 100
#error wrong version
#endif
int main(void) { kip_affineSampleCache *cache; return kip_affineSampleCache_construct(&cache); }
")
run("${CMAKE_COMMAND}" -S "${work_dir}" -B "${work_dir}/build" -G "${generator}" ${cross_options}
    -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON
    -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON
    "-DCMAKE_C_COMPILER=${c_compiler}" "-DCMAKE_CXX_COMPILER=${cxx_compiler}")
run("${CMAKE_COMMAND}" --build "${work_dir}/build" --target compiled)
