#include "StartCode.h"

#include <cstring>

namespace Kelvane {

UnitKind h264Unit(const uint8_t* code) {
  switch (code[0] & 0x1F) {
    case 1:
    case 2:
    case 5:
      // first_mb_in_slice 0 is the single bit 1: a new picture.
      return (code[1] & 0x80) != 0 ? UnitKind::picture : UnitKind::continuation;
    case 6:
    case 7:
    case 8:
    case 9:
    case 14:
    case 15:
      return UnitKind::header;
    default:
      return UnitKind::other;
  }
}

UnitKind mpeg4Unit(const uint8_t* code) {
  if (code[0] == 0xB6) return UnitKind::picture;  // VOP
  // Visual object sequence, visual object, group of VOPs, video object (layer).
  if (code[0] == 0xB0 || code[0] == 0xB3 || code[0] == 0xB5 || code[0] <= 0x2F) {
    return UnitKind::header;
  }
  return UnitKind::other;
}

UnitKind mpeg2Unit(const uint8_t* code) {
  if (code[0] == 0x00) return UnitKind::picture;
  if (code[0] == 0xB3 || code[0] == 0xB8) return UnitKind::header;  // sequence, group of pictures
  return UnitKind::other;
}

std::size_t findStartCode(const uint8_t* data, std::size_t size, std::size_t from) {
  // The 01 of a start code is rarer than the zeros ahead of it.
  while (from + 3 <= size) {
    const void* hit = memchr(data + from + 2, 1, size - from - 2);
    if (hit == nullptr) break;
    const auto at = static_cast<std::size_t>(static_cast<const uint8_t*>(hit) - data) - 2;
    if (data[at] == 0 && data[at + 1] == 0) return at;
    from = at + 1;
  }
  return size;
}

}  // namespace Kelvane
