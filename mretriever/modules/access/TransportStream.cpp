#include "TransportStream.h"

#include <new>

#include "AccessLog.h"

extern "C" {
#include <libavutil/log.h>

// Exported by libavformat, declared in none of its public headers.
MpegTSContext* avpriv_mpegts_parse_open(AVFormatContext* context);
int avpriv_mpegts_parse_packet(MpegTSContext* ts, AVPacket* packet, const uint8_t* data, int size);
void avpriv_mpegts_parse_close(MpegTSContext* ts);
}

namespace Kelvane {

namespace {

constexpr time_t kWarningInterval = 10;  // seconds; a hostile stream restarts all the time

}  // namespace

TransportStream::TransportStream() : packet_(av_packet_alloc()) {
  if (packet_ == nullptr) throw std::bad_alloc();
  av_log_set_level(AV_LOG_FATAL);  // damaged packets are no news on a network
  open();
}

TransportStream::~TransportStream() {
  close();
  av_packet_free(&packet_);
}

void TransportStream::open() {
  avfctx_ = avformat_alloc_context();
  if (avfctx_ == nullptr) throw std::bad_alloc();
  avfctx_->iformat = av_find_input_format("mpegts");
  if (avfctx_->iformat == nullptr) return;
  avfctx_->max_streams = kMaxStreams;
  tsctx_ = avpriv_mpegts_parse_open(avfctx_);
  if (tsctx_ == nullptr) throw std::bad_alloc();
}

void TransportStream::close() {
  if (tsctx_ != nullptr) avpriv_mpegts_parse_close(tsctx_);  // still looks at the context
  tsctx_ = nullptr;
  avformat_free_context(avfctx_);
  avfctx_ = nullptr;
}

void TransportStream::restart() {
  const time_t now = time(nullptr);
  if (now - lastWarning_ >= kWarningInterval) {
    lastWarning_ = now;
    LOG_WARN("Transport stream has announced %u streams and %u programs, starting over",
             avfctx_->nb_streams, avfctx_->nb_programs);
  }
  close();
  open();
  ++restarts_;
}

AVStream* TransportStream::parse(const std::uint8_t* packet) {
  // A stream that is full shows up only when it asks for one more: that one is refused.
  if (avfctx_->nb_streams >= kMaxStreams || avfctx_->nb_programs >= kMaxPrograms) restart();
  if (avpriv_mpegts_parse_packet(tsctx_, packet_, packet, kPacketSize) <= 0) return nullptr;
  const auto index = static_cast<unsigned>(packet_->stream_index);
  AVStream* stream = avfctx_->streams != nullptr && index < avfctx_->nb_streams
                         ? avfctx_->streams[index]
                         : nullptr;
  if (stream == nullptr) av_packet_unref(packet_);
  return stream;
}

}  // namespace Kelvane
