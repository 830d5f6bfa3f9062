#include "ChunkStorage.h"

#include <algorithm>
#include <cstring>

#include "HostLog.h"

namespace Kelvane {

namespace {

constexpr std::size_t kReadSize = 64 * 1024;

}  // namespace

// Appends the next block of the file; false at its end.
bool ChunkStorageImpl::fill(FILE* file) {
  if (begin_ > 0) {
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(begin_));
    begin_ = 0;
  }
  const std::size_t held = pending_.size();
  pending_.resize(held + kReadSize);
  const std::size_t got = fread(pending_.data() + held, 1, kReadSize, file);
  pending_.resize(held + got);
  expectedPosition_ = ftell(file);
  return got > 0;
}

int ChunkStorageImpl::readFrame(FILE* file, uint8_t* buffer, uint32_t size,
                                StorageAPI::FrameExtraInfo*) {
  int bytes = readUnit(file, buffer, size);
  while (bytes < 0) {
    hostError("Access unit passed over: it is larger than " + std::to_string(size) +
              " bytes and ends at or ahead of file offset " + std::to_string(expectedPosition_));
    bytes = readUnit(file, buffer, size);
  }
  return bytes;
}

int ChunkStorageImpl::readUnit(FILE* file, uint8_t* buffer, uint32_t size) {
  if (ftell(file) != expectedPosition_) {  // another file, or the same one opened anew
    pending_.clear();
    begin_ = 0;
    expectedPosition_ = ftell(file);
  }
  beginUnit();
  std::size_t from = 0;
  std::size_t end = 0;
  bool passOver = false;
  for (;;) {
    const std::size_t held = pending_.size() - begin_;
    end = findEnd(pending_.data() + begin_, held, from);
    if (end != 0) break;
    if (held > size) {  // it will not fit: keep only what may hold the next start
      passOver = true;
      begin_ += from;
      from = 0;
    }
    if (!fill(file)) {
      end = pending_.size() - begin_;
      break;
    }
  }
  const uint8_t* unit = pending_.data() + begin_;
  begin_ += end;
  if (passOver || end > size) return -1;
  if (end > 0) memcpy(buffer, unit, end);
  return static_cast<int>(end);
}

// A picture ends with its end marker; 0xFF 0xD9 never stands inside the
// entropy-coded data, and embedded thumbnails are rare in camera streams.
std::size_t MJPGChunkStorageImpl::findEnd(const uint8_t* data, std::size_t size,
                                          std::size_t& from) {
  while (from + 1 < size) {
    const void* hit = memchr(data + from, 0xFF, size - 1 - from);
    if (hit == nullptr) {
      from = size - 1;
      return 0;
    }
    const auto at = static_cast<std::size_t>(static_cast<const uint8_t*>(hit) - data);
    if (data[at + 1] == 0xD9) return at + 2;
    from = at + 1;
  }
  return 0;
}

std::size_t StartCodeChunkStorageImpl::findEnd(const uint8_t* data, std::size_t size,
                                               std::size_t& from) {
  constexpr std::size_t kCode = 3;  // 00 00 01
  if (size < kUnitLookAhead) return 0;
  // Only start codes with what stands behind them.
  const std::size_t whole = size - kUnitLookAhead;
  for (std::size_t at = 0; (at = findStartCode(data, whole, from)) < whole;) {
    from = at + 1;
    const UnitKind kind = classify(data + at + kCode);
    const bool opensUnit = kind == UnitKind::header || kind == UnitKind::picture;
    if (sawPicture_ && opensUnit) {
      // A four-byte start code belongs to the unit that it opens.
      return at > 0 && data[at - 1] == 0 ? at - 1 : at;
    }
    if (kind == UnitKind::picture) sawPicture_ = true;
  }
  if (whole > kCode) from = std::max(from, whole - kCode + 1);
  return 0;
}

}  // namespace Kelvane
