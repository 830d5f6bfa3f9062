#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}

struct MpegTSContext;

namespace Kelvane {

// FFmpeg's demultiplexer for an MPEG transport stream that comes packet by
// packet. Not for several threads. What a stream announces takes bounded
// memory: when it has announced too much, all of it is forgotten and learnt anew.
class TransportStream {
 public:
  static constexpr std::size_t kPacketSize = 188;
  // Each may take 2 MB for an elementary packet that does not end.
  static constexpr unsigned kMaxStreams = 64;
  static constexpr unsigned kMaxPrograms = 256;

  TransportStream();
  ~TransportStream();
  TransportStream(const TransportStream&) = delete;
  TransportStream& operator=(const TransportStream&) = delete;

  // False when this FFmpeg has no demultiplexer for transport streams.
  bool opened() const { return tsctx_ != nullptr; }

  // Takes the whole packets among `data`, drops a shorter tail, and calls
  // handle(AVPacket& pes, AVStream& stream) for each elementary packet that they
  // complete: its payload as PES carries it, freed behind the call.
  template <class Handle>
  void feed(const std::uint8_t* data, std::size_t size, Handle handle) {
    for (std::size_t left = size / kPacketSize; left > 0; --left, data += kPacketSize) {
      AVStream* stream = parse(data);
      if (stream == nullptr) continue;
      handle(*packet_, *stream);
      av_packet_unref(packet_);
    }
  }

  // Counts how often the announced streams were forgotten: what a user keeps
  // for a stream index is void then.
  unsigned restarts() const { return restarts_; }

 private:
  // The stream of the elementary packet in `packet_`, or null for none.
  AVStream* parse(const std::uint8_t* packet);
  void open();
  void close();
  void restart();

  AVFormatContext* avfctx_ = nullptr;
  MpegTSContext* tsctx_ = nullptr;
  AVPacket* packet_;
  unsigned restarts_ = 0;
  time_t lastWarning_ = 0;
};

}  // namespace Kelvane
