# Warnings of hand-written code; generated code and dependencies are spared.
add_library(mretriever_warnings INTERFACE)
target_compile_options(mretriever_warnings INTERFACE
  -Wall -Wextra -Werror -Wshadow -Wpointer-arith -Wcast-qual -Wvla
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual=1 -Wextra-semi>)
if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
  # GCC's spelling with a level is unknown to clang.
  target_compile_options(mretriever_warnings INTERFACE -Wno-unknown-warning-option)
endif()
