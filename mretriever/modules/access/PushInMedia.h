#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Kelvane {

// What a body is, by the first of these words in its content type:
// "MPEG4-GENERIC", "PCMU", "L16/", "L16", "L8". Anything else is video.
enum class PushInKind { aac, pcmu, l16WithRate, l16, l8, video };
struct PushInType {
  PushInKind kind;
  const char* at;  // where the word stands; the whole content type for video
};
PushInType typeOf(const char* contentType);

// "L16/<rate>/<channels>".
bool hasRateAndChannels(const char* l16);

// The four hexadecimal digits behind "config=". A ";" is written behind them
// whatever stood there, so `contentType` needs one byte of room behind its end.
struct AacConfig {
  enum class Outcome { found, missing, cutShort } outcome;
  char digits[5];
};
AacConfig takeAacConfig(char* contentType);

// The raw packets of an AAC body, from "numpackets=<n>;offsets=<list>". The
// list has an entry each five characters, which tells where a packet ends; the
// last packet ends with the body and has none. Zero entries make no packet.
struct AacPackets {
  enum class Outcome { split, noCount, incorrect, badOffset } outcome;
  struct Range {
    std::size_t begin;
    std::size_t end;
  };
  std::vector<Range> ranges;
  std::string fault;  // of a bad offset
};
AacPackets splitAac(const char* contentType, std::size_t bodySize);

}  // namespace Kelvane
