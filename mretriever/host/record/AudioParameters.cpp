#include <cstdio>
#include <cstring>

#include "Codecs.h"

namespace host {

namespace {

struct Codec {
  const char* name;
  AVCodecID id;
  int bits;  // a sample, as coded
};

// Matroska knows G.726 in one bit order only: g726InFileOrder().
constexpr Codec kCodecs[] = {
    {"PCMU", AV_CODEC_ID_PCM_MULAW, 8},     {"PCMA", AV_CODEC_ID_PCM_ALAW, 8},
    {"L8", AV_CODEC_ID_PCM_U8, 8},          {"L16", AV_CODEC_ID_PCM_S16BE, 16},
    {"G726-16", AV_CODEC_ID_ADPCM_G726, 2}, {"G726-24", AV_CODEC_ID_ADPCM_G726, 3},
    {"G726-32", AV_CODEC_ID_ADPCM_G726, 4}, {"G726-40", AV_CODEC_ID_ADPCM_G726, 5},
    {"MPEG4-GENERIC", AV_CODEC_ID_AAC, 0},  {"MPA", AV_CODEC_ID_MP2, 0},
};

const Codec* find(const std::string& name) {
  for (const Codec& codec : kCodecs) {
    if (name == codec.name) return &codec;
  }
  return nullptr;
}

bool setConfiguration(AVCodecParameters& parameters, const std::string& config) {
  parameters.extradata =
      static_cast<uint8_t*>(av_mallocz(config.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) return false;
  memcpy(parameters.extradata, config.data(), config.size());
  parameters.extradata_size = static_cast<int>(config.size());
  return true;
}

// AudioSpecificConfig: 5 bits object type, 4 bits rate index, 4 bits channels.
bool setAac(AVCodecParameters& parameters, const std::string& config) {
  constexpr int kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                            22050, 16000, 12000, 11025, 8000,  7350};
  if (config.size() < 2) return false;
  const unsigned bits = static_cast<uint8_t>(config[0]) << 8 | static_cast<uint8_t>(config[1]);
  const unsigned rate = bits >> 7 & 0x0F;
  const int channels = static_cast<int>(bits >> 3 & 0x0F);
  if (rate >= sizeof kRates / sizeof *kRates || channels == 0 || channels > 7) return false;
  parameters.sample_rate = kRates[rate];
  av_channel_layout_default(&parameters.ch_layout, channels == 7 ? 8 : channels);
  parameters.frame_size = 1024;
  return setConfiguration(parameters, config);
}

struct FreeContext {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct CloseParser {
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

// Layer, rate and channels from the frame's own header.
bool setMpegAudio(AVCodecParameters& parameters, const uint8_t* frame, std::size_t size) {
  const std::unique_ptr<AVCodecContext, FreeContext> context(avcodec_alloc_context3(nullptr));
  const std::unique_ptr<AVCodecParserContext, CloseParser> parser(av_parser_init(AV_CODEC_ID_MP2));
  if (!context || !parser || size == 0) return false;
  std::vector<uint8_t> padded(frame, frame + size);
  padded.resize(size + AV_INPUT_BUFFER_PADDING_SIZE);
  context->codec_id = AV_CODEC_ID_MP2;
  uint8_t* out = nullptr;
  int outSize = 0;
  av_parser_parse2(parser.get(), context.get(), &out, &outSize, padded.data(),
                   static_cast<int>(size), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
  if (context->sample_rate <= 0 || context->ch_layout.nb_channels <= 0) return false;
  parameters.codec_id = context->codec_id;
  parameters.sample_rate = context->sample_rate;
  parameters.frame_size = context->frame_size;
  return av_channel_layout_copy(&parameters.ch_layout, &context->ch_layout) == 0;
}

// "L16/16000/2", or the bare name at 8000 Hz and one channel.
void setPlain(AVCodecParameters& parameters, const std::string& name, int bits) {
  int rate = 0;
  int channels = 0;
  sscanf(name.c_str(), "%*[^/]/%6d/%2d", &rate, &channels);
  parameters.sample_rate = rate > 0 ? rate : 8000;
  av_channel_layout_default(&parameters.ch_layout, channels > 0 ? channels : 1);
  channels = parameters.ch_layout.nb_channels;
  parameters.bits_per_coded_sample = bits;
  parameters.block_align = bits % 8 == 0 ? bits / 8 * channels : 1;
  parameters.bit_rate = static_cast<int64_t>(parameters.sample_rate) * bits * channels;
}

}  // namespace

CodecParameters audioParameters(const std::string& name, const std::string& config,
                                const uint8_t* frame, std::size_t size) {
  const Codec* codec = find(name.substr(0, name.find('/')));
  CodecParameters parameters(codec == nullptr ? nullptr : avcodec_parameters_alloc());
  if (!parameters) return nullptr;
  parameters->codec_type = AVMEDIA_TYPE_AUDIO;
  parameters->codec_id = codec->id;
  if (codec->id == AV_CODEC_ID_AAC)
    return setAac(*parameters, config) ? std::move(parameters) : nullptr;
  if (codec->id == AV_CODEC_ID_MP2) {
    return setMpegAudio(*parameters, frame, size) ? std::move(parameters) : nullptr;
  }
  setPlain(*parameters, name, codec->bits);
  return parameters;
}

std::vector<uint8_t> g726InFileOrder(const uint8_t* data, std::size_t size, int bits) {
  std::vector<uint8_t> out(size);
  const auto width = static_cast<std::size_t>(bits);
  for (std::size_t bit = 0; bit + width <= 8 * size; bit += width) {
    for (std::size_t i = 0; i < width; ++i) {
      const std::size_t from = bit + i;            // counted from each byte's lowest bit
      const std::size_t to = bit + width - 1 - i;  // counted from each byte's highest bit
      if ((data[from / 8] >> (from % 8) & 1) != 0) {
        out[to / 8] = static_cast<uint8_t>(out[to / 8] | 0x80 >> (to % 8));
      }
    }
  }
  return out;
}

}  // namespace host
