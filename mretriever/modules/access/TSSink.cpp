#include "TSSink.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "Cfg.h"
#include "FailureReport.h"

namespace Kelvane {

namespace {

constexpr std::size_t index(TSFrameKind kind) {
  return static_cast<std::size_t>(kind);
}

// Of all video streams together: many may be announced, and none need hold a frame.
constexpr std::size_t kMaxPending = 2 * FrameParser::kMaxFrame;
constexpr time_t kWarningInterval = 10;  // seconds

char typeLetter(int codecType) {
  constexpr char kLetters[] = "VADS+N";
  if (codecType < 0 || codecType >= static_cast<int>(sizeof kLetters) - 1) return '?';
  return kLetters[codecType];
}

}  // namespace

CornetMediaProducerImpl::TSSink::TSSink(UsageEnvironment& env, CornetMediaProducerImpl& producer)
    : AbstractSink(env), mp_(producer), skipToKeyFrame_(Cfg::value("MEDIA_FORMAT") == "mpeg2") {
  if (!ts_.opened()) FATAL_REPORT("iformat == NULL");
}

void CornetMediaProducerImpl::TSSink::addData(unsigned char* data, unsigned int size,
                                              const timeval& tv) {
  ts_.feed(data, size, [&](AVPacket& pes, const AVStream& stream) {
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) {
      newTSFrameGot(pes, stream, tv);
    } else if (stream.codecpar->codec_id != AV_CODEC_ID_NONE) {
      videoPacketGot(pes, stream, tv);
    }
  });
}

FrameParser& CornetMediaProducerImpl::TSSink::parserOf(const AVStream& stream) {
  if (restarts_ != ts_.restarts()) {
    restarts_ = ts_.restarts();
    for (auto& parser : parsers_) parser.reset();
  }
  auto& parser = parsers_[static_cast<std::size_t>(stream.index)];
  if (parser == nullptr) parser = std::make_unique<FrameParser>(stream.codecpar->codec_id);
  if (!parser->opened()) {
    FATAL_REPORT("Could not create parser. codec was: %d", stream.codecpar->codec_id);
  }
  return *parser;
}

void CornetMediaProducerImpl::TSSink::videoPacketGot(const AVPacket& pes, const AVStream& stream,
                                                     const timeval& tv) {
  FrameParser& parser = parserOf(stream);
  parser.feed(pes, [&](AVPacket& frame) {
    const bool key = (frame.flags & AV_PKT_FLAG_KEY) != 0;
    if (key) skipToKeyFrame_ = false;
    if (!skipToKeyFrame_) newTSFrameGot(frame, stream, tv);
  });
  boundParsers();
}

// The longest frame goes first.
void CornetMediaProducerImpl::TSSink::boundParsers() {
  std::size_t total = 0;
  FrameParser* longest = nullptr;
  for (const auto& parser : parsers_) {
    if (parser == nullptr) continue;
    total += parser->pending();
    if (longest == nullptr || parser->pending() > longest->pending()) longest = parser.get();
  }
  if (longest != nullptr && total > kMaxPending) longest->giveUp();
  for (const auto& parser : parsers_) {
    if (parser != nullptr) droppedVideo_ += parser->givenUp();
  }
  const time_t now = time(nullptr);
  if (droppedVideo_ == 0 || now - lastWarning_ < kWarningInterval) return;
  lastWarning_ = now;
  LOG_WARN("Video frames without end, %zu bytes dropped", std::exchange(droppedVideo_, 0));
}

void CornetMediaProducerImpl::TSSink::newTSFrameGot(AVPacket& frame, const AVStream& stream,
                                                    const timeval& presentationTime) {
  std::array<unsigned char, 8> head{};
  const auto size = static_cast<std::size_t>(frame.size);
  std::copy_n(frame.data, std::min(size, head.size()), head.begin());
  const int type = stream.codecpar->codec_type;
  LOG_DEBUG(
      "Got frame. stream=%d, type: %d(%c), codec: %d, flags=%d, size=%d "
      "(0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x 0x%02x)",
      frame.stream_index, type, typeLetter(type), stream.codecpar->codec_id, frame.flags,
      frame.size, head[0], head[1], head[2], head[3], head[4], head[5], head[6], head[7]);

  const TSFrameKind kind = kindOf(frame.data, size);
  remember(kind, frame.stream_index, presentationTime);
  switch (kind) {
    case TSFrameKind::video:
      videoFrameGot(frame, presentationTime);
      break;
    case TSFrameKind::audio:
      audioFrameGot(frame);
      break;
    case TSFrameKind::metadata:
      metadataFrameGot(frame);
      break;
  }
}

// A stream carries one kind at a time: the last one seen.
void CornetMediaProducerImpl::TSSink::remember(TSFrameKind kind, int streamIndex,
                                               const timeval& presentationTime) {
  for (int& other : last_index) {
    if (other == streamIndex) other = -1;
  }
  last_index[index(kind)] = streamIndex;
  last_time[index(kind)] = presentationTime;
  pres_time[index(kind)] = presentationTime;
}

void CornetMediaProducerImpl::TSSink::videoFrameGot(AVPacket& frame,
                                                    const timeval& presentationTime) {
  // Also start codes from a stream that is not known as video, or not yet.
  if (skipToKeyFrame_) return;
  mp_.vSink_->addData(frame.data, static_cast<unsigned>(frame.size), presentationTime);
}

void CornetMediaProducerImpl::TSSink::audioFrameGot(AVPacket& frame) {
  const auto size = static_cast<std::size_t>(frame.size);
  if (size < AdtsHeader::kSize) {
    LOG_DEBUG("Audio frame of %d bytes is shorter than its header, dropped", frame.size);
    return;
  }
  if (!didInitAudioSink_) {
    const auto header = parseAdts(frame.data, size);
    if (!header) {
      LOG_DEBUG("Incorrect 'syncword' (only ADTS implemented)");
      return;
    }
    if (header->profile == AdtsHeader::kReservedProfile) {
      FATAL_REPORT("Bad (reserved) 'profile': 3 in first frame of ADTS file");
    }
    const auto config = header->config();
    LOG_DEBUG("RTP audio config: 0x%02x0x%02x\n", config[0], config[1]);
    mp_.aSink_->init("MPEG4-GENERIC", config.data(), static_cast<unsigned>(config.size()));
    didInitAudioSink_ = true;
  }
  mp_.aSink_->addData(frame.data + AdtsHeader::kSize,
                      static_cast<unsigned>(size - AdtsHeader::kSize),
                      pres_time[index(TSFrameKind::audio)]);
}

void CornetMediaProducerImpl::TSSink::metadataFrameGot(AVPacket& frame) {
  AbstractSink* sink = mp_.dSink_;
  if (!didInitMetadataSink_) {
    if (sink != nullptr) sink->init("", static_cast<const unsigned char*>(nullptr), 0U);
    didInitMetadataSink_ = true;
  }
  if (sink == nullptr) return;
  sink->addData(frame.data, static_cast<unsigned>(frame.size),
                pres_time[index(TSFrameKind::metadata)]);
}

}  // namespace Kelvane
