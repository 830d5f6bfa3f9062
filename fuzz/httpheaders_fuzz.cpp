// What HTTP headers say, and the challenge of a login: pure functions.
#include <cstdint>
#include <string>

#include "HttpContentType.h"
#include "HttpDigestAuth.h"
#include "HttpHeader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Lines come from a reader: a line end is the last byte, and a NUL ends it.
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.substr(0, text.find('\n')).c_str();
  Kelvane::isBlankLine(text.c_str());
  if (const char* rest = Kelvane::headerText(text.c_str(), "Pragma:")) {
    if (rest < text.c_str() || rest > text.c_str() + text.size()) __builtin_trap();
  }
  Kelvane::headerNumber(text.c_str(), "Content-Length:");
  Kelvane::audioCodec(text.c_str());
  for (const std::size_t skip : {0U, 2U}) {
    if (Kelvane::multipartBoundary(text, skip).size() > 252) __builtin_trap();
  }
  if (const auto challenge = Kelvane::parseDigestChallenge(text)) {
    const auto header =
        Kelvane::digestAuthHeader(*challenge, "user:p%41%ss%", "/a?b", "GET", "0123456789abcdef");
    // One line, whatever the challenge holds: nothing of it may add a header.
    if (header && header->find('\n') != header->size() - 1) __builtin_trap();
  }
  return 0;
}
