# Warnings are errors for the project's own code. Third-party headers come in
# as system includes and are not affected.
set(ZOLT_CXX_WARNINGS
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2
    -Wimplicit-fallthrough -Wundef -Wvla)
set(ZOLT_C_WARNINGS
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wformat=2 -Wundef
    -Wstrict-prototypes -Wmissing-prototypes)

function(zolt_set_warnings target)
  target_compile_options(${target} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:${ZOLT_CXX_WARNINGS}>
    $<$<COMPILE_LANGUAGE:C>:${ZOLT_C_WARNINGS}>)
endfunction()
