# Compiler settings for Sylvora's own code. They do not apply to third-party headers or to a user's
# code.

# Contracting a*b+c into one rounding would make results depend on the compiler and the processor,
# but models must be the same everywhere. -ffast-math is forbidden for the same reason.
function(sylvora_own_code target)
    target_compile_features(${target} PRIVATE cxx_std_17)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_compile_options(${target} PRIVATE
        -ffp-contract=off -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        $<$<BOOL:${SYLVORA_WARNINGS_AS_ERRORS}>:-Werror>)
endfunction()

# Precompiled headers hide missing includes; a build without SYLVORA_PRECOMPILE finds them.
function(sylvora_precompile target)
    if(SYLVORA_PRECOMPILE)
        target_precompile_headers(${target} PRIVATE
            <algorithm> <cmath> <cstdint> <fstream> <memory> <string> <utility> <vector>)
    endif()
endfunction()

# Sanitizers apply to the whole build, including the tests.
if(SYLVORA_SANITIZE)
    add_compile_options(-fsanitize=${SYLVORA_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${SYLVORA_SANITIZE})
endif()
