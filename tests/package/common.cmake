# What the scripts of this directory share. A failure ends the script, and with it the test.

set(library_dir "${prefix}/${libdir}")
set(include_dir "${prefix}/${includedir}")

set(cross_options "")
set(link_options "")
if(toolchain)
    # What a toolchain file finds lies below its own root, so that the package has to be named. The compiler's runtime
    # becomes part of the example, too.
    set(link_options -static-libgcc -Wl,-Bstatic) # behind our import libraries
    set(cross_options "-DCMAKE_TOOLCHAIN_FILE=${toolchain}" "-Dkip_DIR=${library_dir}/cmake/kip"
        -DCMAKE_EXE_LINKER_FLAGS=-static)
    set(ENV{WINEPATH} "Z:${prefix}/bin")
endif()

# run(<command>...): runs a command that must succeed; its output is left in `output`.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message("${command}\n${output}${errors}")
        message(FATAL_ERROR "ended with ${result}: ${ARGV0}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

# expect_same_lines(<what> <list> <list>): holds what was found against what was expected, order aside.
function(expect_same_lines what found expected)
    list(SORT found)
    list(SORT expected)
    if(NOT found STREQUAL expected)
        set(extra ${found})
        set(absent ${expected})
        list(REMOVE_ITEM extra ${expected} "")
        list(REMOVE_ITEM absent ${found} "")
        message(FATAL_ERROR "${what}: not expected: [${extra}]; absent: [${absent}]")
    endif()
endfunction()

# declared_services(<variable>): the names that the service headers declare.
function(declared_services variable)
    set(expected "")
    file(GLOB_RECURSE headers "${source_dir}/services/*.h")
    foreach(header IN LISTS headers)
        file(READ "${header}" text)
        string(REGEX MATCHALL "\n(extern )?KSERVICES_API [^;(]*" declarations "${text}")
        foreach(declaration IN LISTS declarations)
            string(REGEX MATCH "[A-Za-z0-9_]+$" name "${declaration}")
            list(APPEND expected "${name}")
        endforeach()
    endforeach()
    list(LENGTH expected count)
    if(count LESS 50)
        message(FATAL_ERROR "found only ${count} declarations in the service headers")
    endif()
    set(${variable} "${expected}" PARENT_SCOPE)
endfunction()

# run_example(<program>): the example must print the picture that was worked out apart from it.
function(run_example program)
    file(READ "${source_dir}/tests/package/straighten.txt" expected)
    run(${emulator} "${program}${executable_suffix}")
    string(REPLACE "\r\n" "\n" output "${output}")
    if(NOT output STREQUAL expected)
        message("${output}is not\n${expected}")
        message(FATAL_ERROR "the wrong picture from ${program}")
    endif()
endfunction()
