# How Sylvora's own code is compiled. Third-party headers and a consumer's code are not touched.

# Contracting a*b+c into one rounding would make the result depend on the compiler and the
# processor, and models are to be the same file everywhere; -ffast-math is out for the same reason.
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

# A build without it tells which source lacks an include.
function(sylvora_precompile target)
    if(SYLVORA_PRECOMPILE)
        target_precompile_headers(${target} PRIVATE
            <algorithm> <cmath> <cstdint> <fstream> <memory> <string> <utility> <vector>)
    endif()
endfunction()

# The whole build is instrumented or none of it.
if(SYLVORA_SANITIZE)
    add_compile_options(-fsanitize=${SYLVORA_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${SYLVORA_SANITIZE})
endif()
