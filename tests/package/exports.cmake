# What the built libraries show to the linker. kip: the functions of exports.txt and nothing else. Services:
# what their headers declare and nothing else. Neither needs more than the standard library.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

# dynamic_symbols(<library>): every defined dynamic symbol, whatever its kind.
function(dynamic_symbols library)
    run("${nm}" --dynamic --defined-only --format=posix "${library}")
    string(REGEX MATCHALL "[^\n]+" lines "${output}")
    list(TRANSFORM lines REPLACE " .*" "")
    set(symbols "${lines}" PARENT_SCOPE)
endfunction()

dynamic_symbols("${library_dir}/libkip.so")
file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/exports.txt" expected)
expect_same_lines("exports of libkip" "${symbols}" "${expected}")

declared_services(expected)
dynamic_symbols("${library_dir}/libkip_services.so")
expect_same_lines("exports of libkip_services" "${symbols}" "${expected}")

# The services must be found beside libkip, through its own run path.
file(GET_RUNTIME_DEPENDENCIES LIBRARIES "${library_dir}/libkip.so"
    RESOLVED_DEPENDENCIES_VAR needed UNRESOLVED_DEPENDENCIES_VAR unresolved)
if(unresolved)
    message(FATAL_ERROR "libkip.so needs what cannot be found: ${unresolved}")
endif()
set(services "${needed}")
list(FILTER services INCLUDE REGEX "/libkip_services\\.so")
cmake_path(IS_PREFIX library_dir "${services}" NORMALIZE beside)
if(NOT beside)
    message(FATAL_ERROR "libkip.so takes its services from [${services}], not from ${library_dir}")
endif()
if(NOT sanitize_flags)
    list(FILTER needed EXCLUDE REGEX "/(libkip_services|libstdc\\+\\+|libc\\+\\+|libgcc_s|libc|libm|ld-linux[^/]*)\\.so")
    if(needed)
        message(FATAL_ERROR "libkip.so needs more than the standard library: ${needed}")
    endif()
endif()
