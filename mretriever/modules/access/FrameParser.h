#pragma once

#include <cstddef>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace Kelvane {

// FFmpeg's parser of one video stream: joins and cuts the payloads of a
// transport stream into frames.
class FrameParser {
 public:
  // A frame that has not ended after so many bytes is given up: memory is
  // bounded also for a stream that holds no video at all.
  static constexpr std::size_t kMaxFrame = 8 * 1024 * 1024;

  explicit FrameParser(AVCodecID codec) : codec_(codec) { open(); }

  // False for a codec that FFmpeg cannot parse.
  bool opened() const { return parser_ != nullptr; }

  // Calls handle(AVPacket& frame) for each frame that `pes` completes; the key
  // flag is set on key frames. The frame's data live until handle() returns.
  template <class Handle>
  void feed(const AVPacket& pes, Handle handle) {
    Input rest{pes.data, pes.size, pes.pts, pes.dts};
    while (rest.size > 0) {
      if (parse(pes, rest)) handle(*frame_);
    }
  }

  // Bytes of the frame that has not ended yet.
  std::size_t pending() const { return pending_; }
  // Drops them.
  void giveUp();
  // The bytes of frames that were given up since the last call.
  std::size_t givenUp();

 private:
  struct Input {
    const uint8_t* data;
    int size;
    int64_t pts;  // count for the first round only
    int64_t dts;
  };
  struct CloseParser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
  };
  struct FreeContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  };
  struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  };

  void open();
  bool parse(const AVPacket& pes, Input& rest);

  const AVCodecID codec_;
  std::unique_ptr<AVCodecContext, FreeContext> context_;
  std::unique_ptr<AVCodecParserContext, CloseParser> parser_;
  std::unique_ptr<AVPacket, FreePacket> frame_{av_packet_alloc()};
  std::size_t pending_ = 0;  // bytes taken since the last frame
  std::size_t givenUp_ = 0;
};

}  // namespace Kelvane
