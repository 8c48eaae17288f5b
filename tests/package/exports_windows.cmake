# What the DLLs show to the linker, what they need, and that nothing of kip.dll runs when it is loaded or when a thread
# begins or ends.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

# headers_of(<file>): leaves the file's headers in `headers`, its exported names in `exports`, the DLLs that it needs
# in `needed`.
function(headers_of file)
    run("${objdump}" --private-headers "${file}")
    string(REGEX MATCHALL "\n\t\\[ *[0-9]+\\] [A-Za-z_][A-Za-z0-9_@?]*" exports "${output}")
    string(REGEX MATCHALL "DLL Name: [^\n]*" needed "${output}")
    list(TRANSFORM exports REPLACE "^\n.*\\] " "")
    list(TRANSFORM needed REPLACE "^DLL Name: " "")
    set(headers "${output}" PARENT_SCOPE)
    set(exports "${exports}" PARENT_SCOPE)
    set(needed "${needed}" PARENT_SCOPE)
endfunction()

if(EXISTS "${build_dir}/bin/kip.exe")
    headers_of("${build_dir}/bin/kip.exe")
    expect_same_lines("DLLs that kip.exe needs" "${needed}" "KERNEL32.dll;msvcrt.dll;kip.dll;kip_services.dll")
endif()

headers_of("${prefix}/bin/kip_services.dll")
declared_services(expected)
expect_same_lines("exports of kip_services.dll" "${exports}" "${expected}")
expect_same_lines("DLLs that kip_services.dll needs" "${needed}" "KERNEL32.dll;msvcrt.dll")

headers_of("${prefix}/bin/kip.dll")
file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/exports.txt" expected)
expect_same_lines("exports of kip.dll" "${exports}" "${expected}")
expect_same_lines("DLLs that kip.dll needs" "${needed}" "KERNEL32.dll;msvcrt.dll;kip_services.dll")

# The entry switches the notifications off and asks nothing else of the system. Thread-local storage would keep them on.
string(REGEX MATCH "DLL Name: KERNEL32.dll\n([^\n]+\n)+" calls "${headers}")
string(REGEX MATCHALL "[0-9]  [A-Za-z_]+\n" calls "${calls}")
list(TRANSFORM calls REPLACE "^[0-9]  |\n$" "")
expect_same_lines("calls of kip.dll to the system" "${calls}" "DisableThreadLibraryCalls")
if(NOT headers MATCHES "Entry 9 0+ 0+ Thread Storage")
    message(FATAL_ERROR "kip.dll has thread-local storage")
endif()

# No static initialiser: the entry would not run it.
run("${objdump}" --section-headers "${prefix}/bin/kip.dll")
if(output MATCHES "\\.(CRT|ctors|init_array)")
    message(FATAL_ERROR "kip.dll has code that a start-up would have to run: ${CMAKE_MATCH_0}")
endif()

# The stack is aligned to 16 bytes only, whatever the compiler believes.
run("${objdump}" --disassemble --no-show-raw-insn "${prefix}/bin/kip.dll")
if(NOT output MATCHES "vmovdqu[^\n]*%[yz]mm")
    message(FATAL_ERROR "no wide moves found in kip.dll")
endif()
if(output MATCHES "vmov(dqa|ap)[^\n]*\\([^\n]*%[yz]mm|vmov(dqa|ap)[^\n]*%[yz]mm[^\n]*\\(")
    message(FATAL_ERROR "a move that needs a wide alignment: ${CMAKE_MATCH_0}")
endif()
