# The README shows the example in full; what it shows is what the other tests build and run.
include("${CMAKE_CURRENT_LIST_DIR}/common.cmake")

file(READ "${source_dir}/README.md" readme)
foreach(file_and_language straighten.c:c straighten.cpp:cpp CMakeLists.txt:cmake)
    string(REGEX MATCH "(.*):(.*)" unused "${file_and_language}")
    set(name "${CMAKE_MATCH_1}")
    set(language "${CMAKE_MATCH_2}")
    file(READ "${source_dir}/examples/straighten/${name}" text)
    string(FIND "${readme}" "\n```${language}\n${text}```\n" place)
    if(place EQUAL -1)
        message(FATAL_ERROR "README.md does not show examples/straighten/${name} as it is")
    endif()
endforeach()
