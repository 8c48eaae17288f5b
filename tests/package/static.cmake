# Static libraries, built without optimisation to save time, installed, found and linked: the example, by find_package
# and by pkg-config, and a program that shows that its end is the services' business as with shared ones.
set(prefix "${work_dir}/prefix")
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")
if(toolchain)
    set(link_options -static) # the runtime, too
endif()

file(REMOVE_RECURSE "${work_dir}")
set(compilers "-DCMAKE_C_COMPILER=${c_compiler}" "-DCMAKE_CXX_COMPILER=${cxx_compiler}")
run("${CMAKE_COMMAND}" -S "${source_dir}" -B "${work_dir}/kip" -G "${generator}" ${cross_options} ${compilers}
    -DBUILD_SHARED_LIBS=OFF -DKIP_BUILD_TESTS=OFF -DKIP_BUILD_BENCH=OFF -DKIP_BUILD_TOOLS=OFF -DCMAKE_BUILD_TYPE=None
    "-DCMAKE_INSTALL_LIBDIR=${libdir}" "-DCMAKE_INSTALL_INCLUDEDIR=${includedir}")
run("${CMAKE_COMMAND}" --build "${work_dir}/kip")
run("${CMAKE_COMMAND}" --install "${work_dir}/kip" --prefix "${prefix}")
file(GLOB libraries RELATIVE "${prefix}" "${library_dir}/*kip*" "${prefix}/bin/*")
list(FILTER libraries EXCLUDE REGEX "/(cmake|pkgconfig)$")
expect_same_lines("libraries" "${libraries}" "${libdir}/libkip.a;${libdir}/libkip_services.a")

# An object of the program's own ends before the callbacks and the pool do.
file(WRITE "${work_dir}/end/end.cpp" "
#include <kip/kip.h>
#include <cstdio>
const struct Early {
    ~Early() { std::puts(\"object\"); }
} early;
int main()
{
    ksys_jobThreadGroup group{4};
    ksys_jobParams params{};
    ksys_jobRequestSet requests{};
    ksys_jobResultSet results{};
    for (int i = 0; i < 8; ++i)
        ksys_jobRequestSet_addFuncAndParams(&requests, [](const ksys_jobParams *) { return 0; }, &params);
    const int32_t status = ksys_jobThreadGroup_dispatchAndWait(&group, &requests, &results);
    ksys_jobResultSet_destruct(&results);
    ksys_jobRequestSet_destruct(&requests);
    return status < 0 || ksys_shutdown_register([](void *) { return std::puts(\"callback\") & 0; }, nullptr) < 0;
}
")
file(WRITE "${work_dir}/end/CMakeLists.txt" "
cmake_minimum_required(VERSION 3.25)
project(end LANGUAGES CXX)
find_package(kip CONFIG REQUIRED)
add_executable(end end.cpp)
target_link_libraries(end PRIVATE kip::services)
add_subdirectory(\"${source_dir}/examples/straighten\" straighten)
")
run("${CMAKE_COMMAND}" -S "${work_dir}/end" -B "${work_dir}/build" -G "${generator}" ${cross_options} ${compilers}
    "-DCMAKE_PREFIX_PATH=${prefix}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
run("${CMAKE_COMMAND}" --build "${work_dir}/build")
run_example("${work_dir}/build/straighten/straighten_c")
run_example("${work_dir}/build/straighten/straighten_cpp")
run(${emulator} "${work_dir}/build/end${executable_suffix}")
string(REPLACE "\r" "" output "${output}")
if(NOT output STREQUAL "object\ncallback\n")
    message(FATAL_ERROR "the program ended with\n${output}")
endif()

find_program(pkg_config NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${library_dir}/pkgconfig")
run("${pkg_config}" --cflags --libs kip)
separate_arguments(flags UNIX_COMMAND "${output}")
run("${c_compiler}" -std=c11 "${source_dir}/examples/straighten/straighten.c" ${flags} ${link_options}
    -o "${work_dir}/straighten")
run_example("${work_dir}/straighten")
