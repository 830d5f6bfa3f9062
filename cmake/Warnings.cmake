# Warnings of hand-written code; generated code and dependencies are spared.
add_library(mretriever_warnings INTERFACE)
target_compile_options(mretriever_warnings INTERFACE
  -Wall -Wextra $<$<NOT:$<BOOL:${MRETRIEVER_FUZZ}>>:-Werror> -Wshadow -Wpointer-arith -Wcast-qual -Wvla
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wextra-semi>)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 13)
  # Older compilers have no level here, and all hidden functions would be too many.
  target_compile_options(mretriever_warnings INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual=1>)
endif()
