#pragma once

#include <MediaSink.hh>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

#include "MediaFrame.h"
#include "TimeVal.h"

namespace Kelvane {

// Takes frames from a live555 source, or from a producer that reads into
// `buffer` itself, gives them their time stamp and hands them to addData().
// Owned by the host, made before the producer. Used from one thread at a time;
// everything but addData() belongs to the event loop's thread.
class AbstractSink : public MediaSink {
 public:
  explicit AbstractSink(UsageEnvironment& env);
  ~AbstractSink() override;

  // Once: later calls change nothing. Concrete sinks read further arguments.
  virtual void init(const char* codec, ...);
  // One frame with the time stamp to use. The data stay the caller's.
  virtual void addData(unsigned char* data, unsigned int size, const timeval& tv) = 0;
  // A text of the camera ahead of the frame that it belongs to.
  virtual void setTrigger(char* text);
  // Gives the frame to the host's frame intake.
  virtual void advance(CPMediaFrame& frame);

  // The road of a frame that lies in `buffer`; `clientData` is the sink. The
  // last two but one arguments, truncation and duration, do not matter.
  static void afterGettingFrame(void* clientData, unsigned frameSize, unsigned numTruncatedBytes,
                                timeval presentationTime, unsigned durationInMicroseconds);

  Boolean continuePlaying() override;

  // One frame. Behind the stated size lie kSpareBytes more, so that an end-of-
  // buffer test of a reader may look and write a little beyond.
  static constexpr unsigned kBufferSize = 1000000;
  static constexpr unsigned kSpareBytes = 64;
  unsigned char* buffer = nullptr;
  unsigned int bufferSize = kBufferSize;

 protected:
  static void sessionTimeoutHandler(void* clientData);

  std::string fCodec;  // empty until init()
  bool fIsTDXSource;
  time_t fStreamProbeTimeLimit = 0;  // 0 stops a running probe
  FILE* fProbe = nullptr;
  FILE* fProbeIndex = nullptr;
  TaskToken fSessionTimeoutTask = nullptr;
  std::string fCameraModel;
  std::string fProto;  // as it was when the sink was made
  bool fFollowRTPTime;
  Delay_Interval fRTPTimeDiff{0, 0};  // magnitude of wall clock minus source time
  bool fRTPTimeDiffPlus = true;       // its sign
  Time_Val fPrevPTS{0, 0};

 private:
  void afterGettingFrame1(unsigned frameSize, timeval presentationTime);
  void startProbe(const char* codec);
  void writeProbe(unsigned frameSize);
  void closeProbe();
  bool followsSourceTime();
  Time_Val correctedTime(const Time_Val& pts);
};

}  // namespace Kelvane
