# One switch for the whole build: parts with and without a sanitizer do not mix.
if(MRETRIEVER_SANITIZE)
  add_compile_options(-fsanitize=${MRETRIEVER_SANITIZE} -fno-omit-frame-pointer -O1 -g1)
  add_link_options(-fsanitize=${MRETRIEVER_SANITIZE})
  if(MRETRIEVER_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
if(MRETRIEVER_FUZZ)
  # Coverage feedback in all code; warnings are no errors, they are the other compiler's.
  # The profile is what scripts/fuzz shows of the lines that the corpora reach.
  add_compile_options(-fsanitize=fuzzer-no-link -fprofile-instr-generate -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()
