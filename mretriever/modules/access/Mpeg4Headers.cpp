#include "Mpeg4Headers.h"

#include <cstring>

namespace Kelvane {

// Its last byte is the rarest of the start code.
std::optional<std::size_t> findVop(const std::uint8_t* data, std::size_t size, std::size_t from) {
  constexpr std::size_t kLast = 3;
  constexpr std::uint8_t kPrefix[kLast] = {0x00, 0x00, 0x01};
  std::size_t at = from + kLast;
  while (at < size) {
    const void* hit = memchr(data + at, 0xB6, size - at);
    if (hit == nullptr) break;
    at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(hit) - data);
    if (memcmp(data + at - kLast, kPrefix, kLast) == 0) return at - kLast;
    ++at;
  }
  return std::nullopt;
}

}  // namespace Kelvane
