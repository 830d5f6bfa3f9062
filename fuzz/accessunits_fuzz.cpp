// What the recording makes of deliveries: the first byte picks codec and size
// of a delivery, the rest is the stream. A picture is a stretch of the stream.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "AccessUnits.h"
#include "Codecs.h"

namespace {

constexpr host::VideoCodec kCodecs[] = {host::VideoCodec::h264, host::VideoCodec::mpeg4,
                                        host::VideoCodec::mpeg2, host::VideoCodec::mjpeg};

void checkVideo(host::VideoCodec codec, const uint8_t* data, size_t size, size_t step) {
  const std::string stream(data, data + size);
  // NAL units without start code get one each.
  const bool verbatim = codec != host::VideoCodec::h264 || step >= size;
  size_t found = 0;
  host::AccessUnitAssembler assembler(codec, [&](const host::AccessUnit& unit) {
    if (unit.data.empty()) __builtin_trap();
    if (!verbatim || size < 4 || data[0] != 0) return;
    const size_t at = stream.find(std::string(unit.data.begin(), unit.data.end()), found);
    if (at == std::string::npos) __builtin_trap();
    found = at + unit.data.size();
  });
  for (size_t at = 0; at < size; at += step) {
    assembler.add(data + at, std::min(step, size - at), {});
  }
  assembler.flush();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t step = data[0] < 0x40 ? size : data[0] & 0x3FU;
  for (const host::VideoCodec codec : kCodecs) {
    checkVideo(codec, data + 1, size - 1, std::max<size_t>(step, 1));
  }
  const std::string text(data + 1, data + std::min<size_t>(size, 40));
  for (const char* name : {"L16/", "MPEG4-GENERIC", "MPA", ""}) {
    host::audioParameters(name + text, text, data + 1, size - 1);
    host::audioParameters(name, text, data + 1, size - 1);
  }
  for (const int bits : {2, 3, 4, 5}) host::g726InFileOrder(data, size, bits);
  return 0;
}
