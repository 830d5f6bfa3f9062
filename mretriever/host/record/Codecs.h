#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AccessUnits.h"

namespace host {

struct FreeParameters {
  void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
};
using CodecParameters = std::unique_ptr<AVCodecParameters, FreeParameters>;

// A sink's codec name ("H264", "MP4V-ES") or a value of MEDIA_FORMAT ("h264").
std::optional<VideoCodec> videoCodec(const std::string& name);
// What a file's header says of the stream; null when this key frame does not
// tell the picture's size.
CodecParameters videoParameters(VideoCodec codec, const AccessUnit& unit);

// From the sink's codec name and configuration bytes and, for MPEG audio, the
// head of a frame. Null for a codec that cannot be stored as it comes, or whose
// frame does not begin with a header.
CodecParameters audioParameters(const std::string& name, const std::string& config,
                                const uint8_t* frame, std::size_t size);

// G.726 samples of `bits` bits: RTP puts the first one into a byte's lowest
// bits, files into its highest.
std::vector<uint8_t> g726InFileOrder(const uint8_t* data, std::size_t size, int bits);

}  // namespace host
