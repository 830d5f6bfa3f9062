#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Kelvane {

// Whether a replay may start with this frame; nothing for a format that is
// none of "mjpg", "mpeg4", "h264", "mpeg2". Looks at the frame's head and
// behind the first zero byte only, so headers in an unusual order are missed.
std::optional<bool> startsReplay(const std::uint8_t* frame, std::size_t size,
                                 std::string_view format);

// The same; an unknown format is a fatal report.
bool isI_VOP(std::uint8_t* frame, unsigned int frameSize, const std::string& media_format);

}  // namespace Kelvane
