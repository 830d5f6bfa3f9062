#include "PushInMedia.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Kelvane {

namespace {

constexpr std::size_t kConfigDigits = 4;
constexpr std::size_t kEntryWidth = 5;  // four digits and a separator

struct Word {
  const char* text;
  PushInKind kind;
};
constexpr Word kWords[] = {
    {"MPEG4-GENERIC", PushInKind::aac},
    {"PCMU", PushInKind::pcmu},
    {"L16/", PushInKind::l16WithRate},
    {"L16", PushInKind::l16},
    {"L8", PushInKind::l8},
};

AacPackets badOffset(const std::string& fault) {
  return {AacPackets::Outcome::badOffset, {}, fault};
}

}  // namespace

PushInType typeOf(const char* contentType) {
  for (const Word& word : kWords) {
    if (const char* at = strstr(contentType, word.text)) return {word.kind, at};
  }
  return {PushInKind::video, contentType};
}

bool hasRateAndChannels(const char* l16) {
  int rate = 0;
  int channels = 0;
  return sscanf(l16, "L16/%d/%d", &rate, &channels) == 2;
}

AacConfig takeAacConfig(char* contentType) {
  constexpr char kName[] = "config=";
  char* digits = strstr(contentType, kName);
  if (digits == nullptr) return {AacConfig::Outcome::missing, {}};
  digits += sizeof kName - 1;
  if (strlen(digits) < kConfigDigits) return {AacConfig::Outcome::cutShort, {}};
  AacConfig config{AacConfig::Outcome::found, {}};
  memcpy(config.digits, digits, kConfigDigits);
  digits[kConfigDigits] = ';';
  return config;
}

AacPackets splitAac(const char* contentType, std::size_t bodySize) {
  const char* at = strstr(contentType, "numpackets=");
  if (at == nullptr) return {AacPackets::Outcome::noCount, {}, {}};
  long count = 0;
  char offsets[256];
  if (sscanf(at, "numpackets=%ld;offsets=%255s", &count, offsets) != 2) {
    return {AacPackets::Outcome::incorrect, {}, {}};
  }

  AacPackets packets{AacPackets::Outcome::split, {}, {}};
  const std::size_t length = strlen(offsets);
  std::size_t position = 0;
  for (long i = 0; i < count; ++i) {
    const std::size_t entry = static_cast<std::size_t>(i) * kEntryWidth;
    // The entry right at the list's end reads as zero.
    if (entry > length) {
      return badOffset("entry " + std::to_string(i) + " of " + std::to_string(count) +
                       " lies behind the list");
    }
    const long end = strtol(offsets + entry, nullptr, 10);
    if (end == 0) continue;
    if (end < static_cast<long>(position) || end > static_cast<long>(bodySize)) {
      return badOffset("offset " + std::to_string(end) + " of entry " + std::to_string(i) +
                       " is not within " + std::to_string(position) + " and " +
                       std::to_string(bodySize));
    }
    packets.ranges.push_back({position, static_cast<std::size_t>(end)});
    position = static_cast<std::size_t>(end);
  }
  packets.ranges.push_back({position, bodySize});
  return packets;
}

}  // namespace Kelvane
