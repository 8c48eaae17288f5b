# What every target of the project is built with: C++20, strict warnings, unfused floating point, sanitizers.

# Before 1.0 a new minor version may break the binary interface, so it is part of the library's file name.
set(KIP_ABI_VERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

# Shared unless asked otherwise, also within a project that says nothing about its own libraries.
set(KIP_LIBRARY_TYPE SHARED)
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
    set(KIP_LIBRARY_TYPE STATIC)
endif()

set(KIP_SANITIZE_FLAGS "")
if(KIP_SANITIZE)
    list(JOIN KIP_SANITIZE "," kip_sanitizers)
    set(KIP_SANITIZE_FLAGS -fsanitize=${kip_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
endif()
if(KIP_BUILD_FUZZERS)
    # Lets the fuzzer see which branches an input takes.
    list(APPEND KIP_SANITIZE_FLAGS -fsanitize=fuzzer-no-link)
endif()

# Installed programs and libraries find ours beside them, wherever the whole tree is moved to.
file(RELATIVE_PATH kip_lib_from_bin "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
set(KIP_INSTALL_RPATH "$ORIGIN;$ORIGIN/${kip_lib_from_bin}")

function(kip_configure_target target)
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
        C_STANDARD 11 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON
        INSTALL_RPATH "${KIP_INSTALL_RPATH}")
    # A fused multiply-add rounds differently from the two operations that the formulas state.
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -ffp-contract=off ${KIP_SANITIZE_FLAGS})
    target_link_options(${target} PRIVATE ${KIP_SANITIZE_FLAGS})
    if(MINGW)
        # The stack of 64-bit Windows is aligned to 16 bytes. GCC keeps wider registers there all the same, with
        # moves that fault unless their address is aligned (GCC bug 54412): the assembler turns those moves into
        # their unaligned forms, which are as fast.
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wa,-muse-unaligned-vector-move>)
        # The compiler's runtime becomes part of each program and library: no DLL but those of Windows is needed.
        # A file without the time of its making is the same whenever it is made.
        target_link_options(${target} PRIVATE -static "LINKER:--no-insert-timestamp")
    endif()
endfunction()

if(MINGW)
    find_program(KIP_LLVM_DLLTOOL llvm-dlltool DOC "Makes import libraries for Microsoft's linker; without it, none are made")
endif()

# kip_tell_parts(<target>): lets the linker write down which parts of which libraries it took for Windows, where they become
# part of the file: their licences go with it (scripts/build-windows-zip.sh).
function(kip_tell_parts target)
    if(MINGW)
        target_link_options(${target} PRIVATE "LINKER:-Map,${PROJECT_BINARY_DIR}/${target}.map")
    endif()
endfunction()

# kip_configure_library(<target> <pattern>...): a library that exports C names of these patterns only
# if it is shared.
# Hidden visibility is not enough for that: the standard library marks its templates and types as visible, so
# that Clang exported an instance of std::clamp from the services, and the address sanitizer adds a symbol for
# each exported variable.
function(kip_configure_library target)
    kip_configure_target(${target})
    if(KIP_LIBRARY_TYPE STREQUAL "STATIC")
        target_compile_definitions(${target} PUBLIC KIP_STATIC) # no name is imported
        return()
    endif()
    set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${KIP_ABI_VERSION})
    if(WIN32)
        set_target_properties(${target} PROPERTIES PREFIX "")
    endif()
    kip_tell_parts(${target})
    if(MINGW AND KIP_LLVM_DLLTOOL)
        # What Microsoft's linker takes, beside MinGW's libkip.dll.a: short import members, as it writes them itself. It
        # misreads some of the long ones, which GNU's tools write.
        set(definitions "${CMAKE_CURRENT_BINARY_DIR}/${target}.def")
        target_link_options(${target} PRIVATE "LINKER:--output-def,${definitions}")
        add_custom_command(TARGET ${target} POST_BUILD
            COMMAND "${KIP_LLVM_DLLTOOL}" --machine i386:x86-64 --input-def "${definitions}"
                --dllname $<TARGET_FILE_NAME:${target}> --output-lib "${CMAKE_CURRENT_BINARY_DIR}/${target}.lib"
            BYPRODUCTS "${CMAKE_CURRENT_BINARY_DIR}/${target}.lib"
            VERBATIM)
        install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${target}.lib" DESTINATION "${CMAKE_INSTALL_LIBDIR}")
    endif()
    if(CMAKE_EXECUTABLE_FORMAT STREQUAL "ELF")
        list(JOIN ARGN "; " patterns)
        set(map "${CMAKE_CURRENT_BINARY_DIR}/${target}.map")
        file(CONFIGURE OUTPUT "${map}" CONTENT "{ global: @patterns@; local: *; };\n" @ONLY)
        target_link_options(${target} PRIVATE "LINKER:--version-script=${map}")
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${map}")
    endif()
endfunction()
