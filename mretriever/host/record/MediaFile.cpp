#include "MediaFile.h"

#include <unistd.h>

#include <stdexcept>

namespace host {

namespace {

constexpr int64_t kFlushMillis = 500;

struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

}  // namespace

MediaFile::MediaFile(const std::string& name, const AVCodecParameters* videoParameters,
                     const AVCodecParameters* audioParameters)
    : name_(name) {
  AVFormatContext* made = nullptr;
  check(avformat_alloc_output_context2(&made, nullptr, "matroska", name.c_str()));
  context_.reset(made);
  if (videoParameters != nullptr) streams_[video] = addStream(videoParameters);
  if (audioParameters != nullptr) streams_[audio] = addStream(audioParameters);
  check(avio_open(&context_->pb, name.c_str(), AVIO_FLAG_WRITE));
  try {
    check(avformat_write_header(context_.get(), nullptr));
    avio_flush(context_->pb);
    check(context_->pb->error);
  } catch (...) {
    avio_closep(&context_->pb);
    unlink(name.c_str());
    throw;
  }
}

AVStream* MediaFile::addStream(const AVCodecParameters* parameters) {
  AVStream* stream = avformat_new_stream(context_.get(), nullptr);
  if (stream == nullptr) check(AVERROR(ENOMEM));
  check(avcodec_parameters_copy(stream->codecpar, parameters));
  stream->sample_aspect_ratio = parameters->sample_aspect_ratio;
  return stream;
}

MediaFile::~MediaFile() {
  avio_closep(&context_->pb);
  if (!holdsData_) unlink(name_.c_str());
}

void MediaFile::check(int result) const {
  if (result >= 0) return;
  char reason[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(result, reason, sizeof reason);
  throw std::runtime_error(name_ + ": " + reason);
}

bool MediaFile::write(Track track, const uint8_t* data, std::size_t size, int64_t time, bool key) {
  padded_.assign(data, data + size);
  padded_.resize(size + AV_INPUT_BUFFER_PADDING_SIZE);
  const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
  if (!packet) check(AVERROR(ENOMEM));
  packet->data = padded_.data();
  packet->size = static_cast<int>(size);
  packet->stream_index = streams_[track]->index;
  packet->pts = packet->dts = av_rescale_q(time, {1, 1000}, streams_[track]->time_base);
  if (key) packet->flags |= AV_PKT_FLAG_KEY;
  const bool taken = av_write_frame(context_.get(), packet.get()) >= 0;
  check(context_->pb->error);
  if (taken && (time - flushed_ >= kFlushMillis || !holdsData_)) flush(time);
  return taken;
}

// Ends the cluster and hands it to the system.
void MediaFile::flush(int64_t time) {
  check(av_write_frame(context_.get(), nullptr));
  avio_flush(context_->pb);
  check(context_->pb->error);
  flushed_ = time;
  holdsData_ = true;
}

void MediaFile::finish() {
  check(av_write_trailer(context_.get()));
  avio_flush(context_->pb);
  check(context_->pb->error);
}

}  // namespace host
