#include "ModifiedUtf8.h"

#include <cstdint>

namespace cms::openwire {
namespace {

constexpr std::uint32_t kReplacement = 0xfffd;

void put(std::string& out, std::uint32_t code) {
  const auto add = [&out](std::uint32_t byte) { out += static_cast<char>(byte); };
  if (code < 0x80) {
    add(code);
  } else if (code < 0x800) {
    add(0xc0 | code >> 6);
    add(0x80 | (code & 0x3f));
  } else if (code < 0x10000) {
    add(0xe0 | code >> 12);
    add(0x80 | (code >> 6 & 0x3f));
    add(0x80 | (code & 0x3f));
  } else {
    add(0xf0 | code >> 18);
    add(0x80 | (code >> 12 & 0x3f));
    add(0x80 | (code >> 6 & 0x3f));
    add(0x80 | (code & 0x3f));
  }
}

bool isSurrogate(std::uint32_t code) {
  return code >= 0xd800 && code < 0xe000;
}

// Takes one character of one to four bytes off the front; surrogates and
// overlong forms pass, the callers judge them.
std::uint32_t take(std::string_view& in) {
  const auto lead = static_cast<std::uint8_t>(in.front());
  in.remove_prefix(1);
  if (lead < 0x80) return lead;
  const std::size_t more = lead >= 0xf8   ? 0
                           : lead >= 0xf0 ? 3
                           : lead >= 0xe0 ? 2
                           : lead >= 0xc0 ? 1
                                          : 0;
  if (more == 0 || in.size() < more) return kReplacement;
  std::uint32_t code = lead & (0x3fU >> more);
  for (std::size_t i = 0; i < more; ++i) {
    const auto next = static_cast<std::uint8_t>(in[i]);
    if ((next & 0xc0) != 0x80) return kReplacement;
    code = code << 6 | (next & 0x3f);
  }
  in.remove_prefix(more);
  return code;
}

}  // namespace

std::string toModifiedUtf8(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  while (!utf8.empty()) {
    std::uint32_t code = take(utf8);
    if (code > 0x10ffff || isSurrogate(code)) code = kReplacement;
    if (code == 0) {
      out += "\xc0\x80";
    } else if (code < 0x10000) {
      put(out, code);
    } else {
      put(out, 0xd800 + ((code - 0x10000) >> 10));
      put(out, 0xdc00 + ((code - 0x10000) & 0x3ff));
    }
  }
  return out;
}

std::string fromModifiedUtf8(std::string_view modified) {
  std::string out;
  out.reserve(modified.size());
  while (!modified.empty()) {
    std::uint32_t code = take(modified);
    if (code >= 0xd800 && code < 0xdc00 && !modified.empty()) {
      std::string_view rest = modified;
      const std::uint32_t low = take(rest);
      if (low >= 0xdc00 && low < 0xe000) {
        code = 0x10000 + ((code - 0xd800) << 10) + (low - 0xdc00);
        modified = rest;
      }
    }
    put(out, code > 0x10ffff || isSurrogate(code) ? kReplacement : code);
  }
  return out;
}

}  // namespace cms::openwire
