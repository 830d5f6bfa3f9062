#pragma once

#include <string>

#include "AbstractSink.h"
#include "MediaFrame.h"

namespace Kelvane {

// The host's sinks: each wraps the bytes that it is given in a MediaFrame of
// its own (one copy) and hands it to the frame intake. addData() of one sink
// is called from one thread at a time; it does not touch the event loop.
class HostSink : public AbstractSink {
 public:
  void addData(unsigned char* data, unsigned int size, const timeval& tv) override;

 protected:
  HostSink(UsageEnvironment& env, MEDIA_TYPE type) : AbstractSink(env), type_(type) {}
  // Tells the observer, once.
  void initialise(const char* codec, const unsigned char* config, unsigned configSize);
  // What the codec says about each frame.
  virtual void describe(MediaFrame&) {}

 private:
  MEDIA_TYPE type_;
};

// init() takes the codec name only.
class VideoSink : public HostSink {
 public:
  explicit VideoSink(UsageEnvironment& env) : HostSink(env, VIDEO) {}
  ~VideoSink() override = default;
  void init(const char* codec, ...) override;
  // The text belongs to the next frame: an event of the camera, "motion..." or an input.
  void setTrigger(char* text) override;

 protected:
  void describe(MediaFrame& frame) override;

 private:
  std::string trigger_;
};

// init() takes the codec name, a const unsigned char* to configuration bytes
// or null, and their number as unsigned. "L16/<rate>/<channels>" and the like
// carry rate and channels in the name.
class AudioSink : public HostSink {
 public:
  explicit AudioSink(UsageEnvironment& env) : HostSink(env, AUDIO) {}
  ~AudioSink() override = default;
  void init(const char* codec, ...) override;

 protected:
  void describe(MediaFrame& frame) override;

 private:
  uint32_t samplingFrequency_ = 8000;  // Hz
  uint8_t numChannels_ = 1;
  uint8_t bitsPerSample_ = 8;
};

// init() as of AudioSink.
class MetadataSink : public HostSink {
 public:
  explicit MetadataSink(UsageEnvironment& env) : HostSink(env, METADATA) {}
  ~MetadataSink() override = default;
  void init(const char* codec, ...) override;
};

}  // namespace Kelvane
