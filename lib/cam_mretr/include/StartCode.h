#pragma once

#include <cstddef>
#include <cstdint>

namespace Kelvane {

// What stands behind a start code (00 00 01) of an elementary stream, as far
// as it tells where an access unit begins: a picture with the headers ahead of
// it. Headers and pictures may open one, continuations and others never do.
enum class UnitKind { other, header, picture, continuation };

// Each looks at this many bytes behind the start code.
constexpr std::size_t kUnitLookAhead = 2;

UnitKind h264Unit(const uint8_t* code);
UnitKind mpeg4Unit(const uint8_t* code);
UnitKind mpeg2Unit(const uint8_t* code);

// Offset of the first 00 00 01 at or behind `from` in data[0, size), or `size`.
std::size_t findStartCode(const uint8_t* data, std::size_t size, std::size_t from);

}  // namespace Kelvane
