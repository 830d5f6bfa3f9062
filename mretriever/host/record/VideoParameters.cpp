extern "C" {
#include <libavformat/avformat.h>
}

#include <cstring>

#include "Codecs.h"

namespace host {

namespace {

struct Format {
  VideoCodec codec;
  const char* sinkName;
  const char* mediaFormat;
  const char* demuxer;
};

constexpr Format kFormats[] = {
    {VideoCodec::h264, "H264", "h264", "h264"},
    {VideoCodec::mpeg4, "MP4V-ES", "mpeg4", "m4v"},
    {VideoCodec::mpeg2, "MPV", "mpeg2", "mpegvideo"},
    {VideoCodec::mjpeg, "JPEG", "mjpg", "mjpeg"},
};

// The bytes of a unit as libavformat reads a file.
struct MemoryInput {
  const std::vector<uint8_t>& data;
  std::size_t at = 0;

  static int read(void* opaque, uint8_t* to, int size) {
    auto& input = *static_cast<MemoryInput*>(opaque);
    const std::size_t bytes =
        std::min(static_cast<std::size_t>(size), input.data.size() - input.at);
    if (bytes == 0) return AVERROR_EOF;
    memcpy(to, input.data.data() + input.at, bytes);
    input.at += bytes;
    return static_cast<int>(bytes);
  }
};

struct CloseIo {
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};
struct CloseInput {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

void findStreamInfo(AVFormatContext* context) {
  AVDictionary* one = nullptr;
  av_dict_set(&one, "threads", "1", 0);
  AVDictionary* options[] = {one};
  avformat_find_stream_info(context, context->nb_streams == 1 ? options : nullptr);
  av_dict_free(&options[0]);
}

}  // namespace

std::optional<VideoCodec> videoCodec(const std::string& name) {
  for (const Format& format : kFormats) {
    if (name == format.sinkName || name == format.mediaFormat) return format.codec;
  }
  return std::nullopt;
}

CodecParameters videoParameters(VideoCodec codec, const AccessUnit& unit) {
  constexpr int kBlock = 16384;
  MemoryInput memory{unit.data};
  auto* block = static_cast<unsigned char*>(av_malloc(kBlock));
  const std::unique_ptr<AVIOContext, CloseIo> io(
      avio_alloc_context(block, kBlock, 0, &memory, MemoryInput::read, nullptr, nullptr));
  AVFormatContext* opened = avformat_alloc_context();
  if (!io || opened == nullptr) return nullptr;
  opened->pb = io.get();
  const char* demuxer = nullptr;
  for (const Format& format : kFormats) {
    if (format.codec == codec) demuxer = format.demuxer;
  }
  // A failure frees the context.
  if (avformat_open_input(&opened, nullptr, av_find_input_format(demuxer), nullptr) < 0) {
    return nullptr;
  }
  const std::unique_ptr<AVFormatContext, CloseInput> context(opened);
  findStreamInfo(context.get());
  if (context->nb_streams != 1) return nullptr;
  const AVCodecParameters* found = context->streams[0]->codecpar;
  if (found->width <= 0 || found->height <= 0) return nullptr;
  CodecParameters parameters(avcodec_parameters_alloc());
  if (!parameters || avcodec_parameters_copy(parameters.get(), found) < 0) return nullptr;
  parameters->codec_tag = 0;
  return parameters;
}

}  // namespace host
