#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Kelvane {

// What encoders that send bare MPEG-4 pictures leave out: visual object
// sequence and visual object.
constexpr std::array<std::uint8_t, 10> VOS{0x00, 0x00, 0x01, 0xB0, 0xF5,
                                           0x00, 0x00, 0x01, 0xB5, 0x09};

// Offset of the first start code 00 00 01 B6 that begins at `from` or later and
// lies whole within `size` bytes.
std::optional<std::size_t> findVop(const std::uint8_t* data, std::size_t size, std::size_t from);

}  // namespace Kelvane
