#include "HttpContentType.h"

#include <cstring>

namespace Kelvane {

namespace {

// The first row whose type stands anywhere in the line. G723 is what some
// cameras call their G.726 at 24 kbit/s.
constexpr struct {
  const char* type;
  const char* codec;
} kCodecs[] = {
    {"audio/basic", "PCMU"},        {"audio/PCMU", "PCMU"},
    {"audio/32KADPCM", "G726-32"},  {"audio/g.726-32k", "G726-32"},
    {"audio/g726", "G726-32"},      {"audio/G723", "G726-24"},
    {"audio/g.726-16k", "G726-16"}, {"audio/mpeg4-generic", "MPEG4-GENERIC"},
};

constexpr char kLettersAndDigits[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr std::size_t kLongestBoundary = 250;

}  // namespace

const char* audioCodec(const char* line) {
  for (const auto& row : kCodecs) {
    if (strstr(line, row.type) != nullptr) return row.codec;
  }
  return nullptr;
}

std::string multipartBoundary(const std::string& line, std::size_t skip) {
  const std::size_t name = line.find("boundary=");
  if (name == std::string::npos) return "";
  const std::size_t begin = line.find('=', name) + 1 + skip;
  if (begin >= line.size()) return "--";
  const std::string text = line.substr(begin, kLongestBoundary);
  return "--" + text.substr(0, text.find_first_not_of(kLettersAndDigits));
}

}  // namespace Kelvane
