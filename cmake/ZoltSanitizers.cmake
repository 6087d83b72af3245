# Sanitizers apply to everything built here (library, virtual instrument,
# tests) so that an error crossing from one to the other is still caught.
if(ZOLT_SANITIZE)
  list(JOIN ZOLT_SANITIZE "," _zolt_sanitizers)
  add_compile_options(-fsanitize=${_zolt_sanitizers} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all -g -O1)
  add_link_options(-fsanitize=${_zolt_sanitizers})
  set(ZOLT_SANITIZER_FLAGS "-fsanitize=${_zolt_sanitizers}")
endif()

if(ZOLT_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "ZOLT_BUILD_FUZZERS needs clang (CC=clang CXX=clang++)")
  endif()
  # Coverage instrumentation for the code under test; the fuzz drivers add
  # -fsanitize=fuzzer themselves.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=address,undefined)
endif()
