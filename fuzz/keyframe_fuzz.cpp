#include <cstddef>
#include <cstdint>

#include "KeyFrame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  for (const char* format : {"mjpg", "mpeg4", "h264", "mpeg2"}) {
    if (!Kelvane::startsReplay(data, size, format)) __builtin_trap();
  }
  return 0;
}
