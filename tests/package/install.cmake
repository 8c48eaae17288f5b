# Installs into one place and moves the tree to another: nothing in it may hold a path of the first.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

file(REMOVE_RECURSE "${work_dir}" "${prefix}")
set(config_option "")
if(config)
    set(config_option --config "${config}")
endif()
run("${CMAKE_COMMAND}" --install "${build_dir}" --prefix "${work_dir}" ${config_option})
file(RENAME "${work_dir}" "${prefix}")
