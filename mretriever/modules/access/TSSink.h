#pragma once

#include <array>
#include <memory>

#include "CornetMediaProducerImpl.h"
#include "FrameParser.h"
#include "TSFrame.h"
#include "TransportStream.h"

namespace Kelvane {

// Takes the stream's packets from the source, takes them apart into frames and
// gives each to the host's sink that its first bytes ask for. All on the
// event loop's thread.
class CornetMediaProducerImpl::TSSink : public AbstractSink {
 public:
  TSSink(UsageEnvironment& env, CornetMediaProducerImpl& producer);

  // Whole packets of the transport stream, and maybe a tail that is dropped.
  void addData(unsigned char* data, unsigned int size, const timeval& tv) override;

 private:
  // One frame; everything but video comes as the PES carried it.
  void newTSFrameGot(AVPacket& frame, const AVStream& stream, const timeval& presentationTime);
  void remember(TSFrameKind kind, int streamIndex, const timeval& presentationTime);
  void videoPacketGot(const AVPacket& pes, const AVStream& stream, const timeval& tv);
  void videoFrameGot(AVPacket& frame, const timeval& presentationTime);
  void audioFrameGot(AVPacket& frame);
  void metadataFrameGot(AVPacket& frame);
  FrameParser& parserOf(const AVStream& stream);
  void boundParsers();

  CornetMediaProducerImpl& mp_;
  TransportStream ts_;
  unsigned restarts_ = 0;  // of ts_, for which parsers_ hold
  std::array<std::unique_ptr<FrameParser>, TransportStream::kMaxStreams> parsers_;
  std::size_t droppedVideo_ = 0;  // bytes of frames without end, not yet told of
  time_t lastWarning_ = 0;
  bool didInitAudioSink_ = false;
  bool didInitMetadataSink_ = false;
  // By kind of frame: the stream that the last one came from, and its time.
  std::array<int, kTSFrameKinds> last_index{-1, -1, -1};
  std::array<timeval, kTSFrameKinds> last_time{};
  std::array<timeval, kTSFrameKinds> pres_time{};
  bool skipToKeyFrame_;
};

}  // namespace Kelvane
