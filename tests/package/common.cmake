# What the scripts of this directory share. A failure ends the script, and with it the test.

set(library_dir "${prefix}/${libdir}")
set(include_dir "${prefix}/${includedir}")

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

# run_example(<program>): the example must print the picture that was worked out apart from it.
function(run_example program)
    file(READ "${source_dir}/tests/package/straighten.txt" expected)
    run("${program}")
    if(NOT output STREQUAL expected)
        message("${output}is not\n${expected}")
        message(FATAL_ERROR "the wrong picture from ${program}")
    endif()
endfunction()
