#pragma once

#include <string>

namespace Kelvane {

// What an audio response's Content-Type line says. Pure.

// The codec's RTP name; null for a type that is not known.
const char* audioCodec(const char* line);

// The boundary of a multipart line with "--" ahead, `skip` bytes behind the
// equals sign left out, up to the first byte that is no letter or digit and at
// most 250 of them. Empty for a line without "boundary=".
std::string multipartBoundary(const std::string& line, std::size_t skip);

}  // namespace Kelvane
