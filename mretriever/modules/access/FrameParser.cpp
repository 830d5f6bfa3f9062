#include "FrameParser.h"

#include <new>
#include <utility>

namespace Kelvane {

namespace {

// The parser leaves -1 where the codec's headers do not tell.
bool isKeyFrame(const AVCodecParserContext& parser, const AVPacket& pes) {
  if (parser.key_frame == 1) return true;
  if (parser.key_frame != -1) return false;
  return parser.pict_type == AV_PICTURE_TYPE_I ||
         (parser.pict_type == AV_PICTURE_TYPE_NONE && (pes.flags & AV_PKT_FLAG_KEY) != 0);
}

}  // namespace

void FrameParser::open() {
  parser_.reset(av_parser_init(codec_));
  context_.reset(avcodec_alloc_context3(nullptr));
  if (context_ == nullptr || frame_ == nullptr) throw std::bad_alloc();
  context_->codec_id = codec_;
  context_->codec_type = AVMEDIA_TYPE_VIDEO;
}

void FrameParser::giveUp() {
  givenUp_ += std::exchange(pending_, 0);
  open();
}

std::size_t FrameParser::givenUp() {
  return std::exchange(givenUp_, 0);
}

bool FrameParser::parse(const AVPacket& pes, Input& rest) {
  uint8_t* data = nullptr;
  int size = 0;
  const int used = av_parser_parse2(parser_.get(), context_.get(), &data, &size, rest.data,
                                    rest.size, rest.pts, rest.dts, pes.pos);
  rest.pts = rest.dts = AV_NOPTS_VALUE;
  if (used < 0) {
    rest.size = 0;
    return false;
  }
  rest.data += used;
  rest.size -= used;
  if (size > 0) {
    pending_ = 0;
    frame_->data = data;
    frame_->size = size;
    frame_->stream_index = pes.stream_index;
    frame_->pts = parser_->pts;
    frame_->dts = parser_->dts;
    frame_->pos = parser_->pos;
    frame_->flags = isKeyFrame(*parser_, pes) ? AV_PKT_FLAG_KEY : 0;
    return true;
  }
  pending_ += static_cast<std::size_t>(used);
  if (pending_ > kMaxFrame) {
    giveUp();
  } else if (used == 0) {
    rest.size = 0;  // a parser that takes nothing would be asked for ever
  }
  return false;
}

}  // namespace Kelvane
