# What every target of the project is built with: C++20, strict warnings, unfused floating point, sanitizers.

set(KIP_SANITIZE_FLAGS "")
if(KIP_SANITIZE)
    list(JOIN KIP_SANITIZE "," kip_sanitizers)
    set(KIP_SANITIZE_FLAGS -fsanitize=${kip_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
endif()

function(kip_configure_target target)
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
        C_STANDARD 11 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    # A fused multiply-add rounds differently from the two operations that the formulas state.
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -ffp-contract=off ${KIP_SANITIZE_FLAGS})
    target_link_options(${target} PRIVATE ${KIP_SANITIZE_FLAGS})
endfunction()
