// A transport stream from the network: demultiplexer, frame parsers and the
// audio header. The program ends on purpose for codecs without a parser, which
// is the sink's matter and not looked at here.
#include <array>
#include <cstdint>
#include <memory>

#include "FrameParser.h"
#include "TSFrame.h"
#include "TransportStream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Kelvane::TransportStream ts;
  std::array<std::unique_ptr<Kelvane::FrameParser>, Kelvane::TransportStream::kMaxStreams> parsers;
  const auto frameGot = [](const AVPacket& frame) {
    const auto bytes = static_cast<std::size_t>(frame.size);
    if (Kelvane::kindOf(frame.data, bytes) != Kelvane::TSFrameKind::audio) return;
    if (const auto header = Kelvane::parseAdts(frame.data, bytes)) header->config();
  };
  ts.feed(data, size, [&](const AVPacket& pes, const AVStream& stream) {
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) {
      frameGot(pes);
      return;
    }
    auto& parser = parsers.at(static_cast<std::size_t>(stream.index));
    if (parser == nullptr) {
      parser = std::make_unique<Kelvane::FrameParser>(stream.codecpar->codec_id);
    }
    if (parser->opened()) parser->feed(pes, frameGot);
  });
  return 0;
}
