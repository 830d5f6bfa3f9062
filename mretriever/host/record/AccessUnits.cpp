#include "AccessUnits.h"

#include <algorithm>
#include <utility>

#include "StartCode.h"

namespace host {

using Kelvane::findStartCode;
using Kelvane::UnitKind;

namespace {

constexpr std::size_t kCodeSize = 3;  // 00 00 01

bool beginsWithStartCode(const uint8_t* data, std::size_t size) {
  const std::size_t at = findStartCode(data, std::min<std::size_t>(size, 4), 0);
  return at < std::min<std::size_t>(size, 4) && (at == 0 || data[0] == 0);
}

// Height and width of a JPEG picture as its frame header has them; empty when
// there is none ahead of the scan.
std::string jpegSize(const uint8_t* data, std::size_t size) {
  constexpr std::size_t kSizeAt = 5;  // behind marker, length and precision
  for (std::size_t at = 2; at + kSizeAt + 4 <= size && data[at] == 0xFF;) {
    const uint8_t marker = data[at + 1];
    if (marker >= 0xC0 && marker <= 0xC2) {
      return std::string(data + at + kSizeAt, data + at + kSizeAt + 4);
    }
    at += 2 + (static_cast<std::size_t>(data[at + 2]) << 8 | data[at + 3]);
  }
  return {};
}

}  // namespace

// What one start code says about the access unit that it stands in.
struct AccessUnitAssembler::Unit {
  UnitKind kind;
  bool key;
  bool configuration;
};

AccessUnitAssembler::Unit AccessUnitAssembler::examine(const uint8_t* code,
                                                       std::size_t size) const {
  uint8_t head[3] = {};  // a unit may end right behind its start code
  std::copy_n(code, std::min(size, sizeof head), head);
  switch (codec_) {
    case VideoCodec::h264: {
      const int type = head[0] & 0x1F;
      // Some cameras never send an IDR picture, but their parameter sets ahead of an I picture.
      return {Kelvane::h264Unit(head), type == 5 || type == 7, type == 7};
    }
    case VideoCodec::mpeg4: {
      const bool intra = head[0] == 0xB6 && (head[1] & 0xC0) == 0;
      return {Kelvane::mpeg4Unit(head), intra, head[0] <= 0x2F};
    }
    case VideoCodec::mpeg2: {
      const bool intra = head[0] == 0x00 && (head[2] >> 3 & 7) == 1;
      return {Kelvane::mpeg2Unit(head), intra, head[0] == 0xB3};
    }
    case VideoCodec::mjpeg:
      break;
  }
  return {UnitKind::picture, true, false};
}

void AccessUnitAssembler::add(const uint8_t* data, std::size_t size, const timeval& tv) {
  if (size == 0) return;
  if (codec_ == VideoCodec::mjpeg) {
    pending_.data.assign(data, data + size);
    pending_.tv = tv;
    pending_.key = true;
    pending_.configuration = jpegSize(data, size);
    hasPicture_ = true;
    emit();
    return;
  }
  if (codec_ == VideoCodec::h264 && !beginsWithStartCode(data, size)) {
    constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    const Unit unit = examine(data, size);
    begin(unit, tv);
    append(kStartCode, sizeof kStartCode);
    append(data, size);
    if (unit.configuration) configure(data, data + size);
    return;
  }
  std::size_t from = 0;  // what is not appended yet begins here
  for (std::size_t at = findStartCode(data, size, 0); at < size;) {
    const std::size_t next = findStartCode(data, size, at + kCodeSize);
    const Unit unit = examine(data + at + kCodeSize, size - at - kCodeSize);
    // The zero of a four-byte start code belongs to what it begins.
    const std::size_t cut = at > from && data[at - 1] == 0 ? at - 1 : at;
    append(data + from, cut - from);
    from = cut;
    begin(unit, tv);
    if (unit.configuration) configure(data + at + kCodeSize, data + next);
    at = next;
  }
  append(data + from, size - from);
}

void AccessUnitAssembler::begin(const Unit& unit, const timeval& tv) {
  const bool picture = unit.kind == UnitKind::picture;
  const bool opens = picture || unit.kind == UnitKind::header;
  if (hasPicture_ && opens) emit();
  joined_ = joined_ || opens;
  if (picture && !hasPicture_) pending_.tv = tv;
  hasPicture_ = hasPicture_ || picture;
  pending_.key = pending_.key || unit.key;
}

// The zeros behind a header belong to the next start code. A camera may repeat
// in its stream what it has described: twice the same is no other picture.
void AccessUnitAssembler::configure(const uint8_t* data, const uint8_t* end) {
  while (end > data && end[-1] == 0) --end;
  const std::string header(data, end);
  if (pending_.configuration.find(header) == std::string::npos) pending_.configuration += header;
}

void AccessUnitAssembler::append(const uint8_t* data, std::size_t size) {
  if (!joined_) return;  // the rest of a unit whose beginning was missed
  if (pending_.data.size() + size > kLongestUnit) overlong_ = true;
  if (!overlong_) pending_.data.insert(pending_.data.end(), data, data + size);
}

void AccessUnitAssembler::emit() {
  if (overlong_) {
    ++dropped_;
  } else if (hasPicture_) {
    take_(pending_);
  }
  pending_.data.clear();
  pending_.configuration.clear();
  pending_.key = false;
  hasPicture_ = false;
  overlong_ = false;
}

void AccessUnitAssembler::flush() {
  emit();
}

unsigned AccessUnitAssembler::takeDropped() {
  return std::exchange(dropped_, 0U);
}

}  // namespace host
