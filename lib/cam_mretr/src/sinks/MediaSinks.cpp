#include "MediaSinks.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "AccessLog.h"
#include "FailureReport.h"
#include "HostObserver.h"

namespace Kelvane {

void HostSink::addData(unsigned char* data, unsigned int size, const timeval& tv) {
  auto* copy = static_cast<uint8_t*>(malloc(size == 0 ? 1 : size));
  if (copy == nullptr) FATAL_EXIT("Request memory for a frame of %u bytes failed", size);
  if (size > 0) memcpy(copy, data, size);
  CPMediaFrame frame(new MediaFrame(copy, size, type_));
  frame->tv = tv;
  describe(*frame);
  advance(frame);
}

void HostSink::initialise(const char* codec, const unsigned char* config, unsigned configSize) {
  const bool first = fCodec.empty();
  AbstractSink::init(codec);
  if (!first) return;
  if (HostObserver* observer = hostObserver()) {
    const std::string bytes =
        config == nullptr ? "" : std::string(reinterpret_cast<const char*>(config), configSize);
    observer->onInit(type_, codec, bytes);
  }
}

void VideoSink::init(const char* codec, ...) {
  initialise(codec, nullptr, 0);
}

void VideoSink::setTrigger(char* text) {
  trigger_ = text;
  if (HostObserver* observer = hostObserver()) observer->onTrigger(trigger_);
}

void VideoSink::describe(MediaFrame& frame) {
  if (trigger_.empty()) return;
  frame.trigger = strncasecmp(trigger_.c_str(), "motion", 6) == 0 ? MOTION : INPUT;
  frame.isEventHappened = true;
  frame.eventMessage = trigger_;
  trigger_.clear();
}

void AudioSink::init(const char* codec, ...) {
  va_list arguments;
  va_start(arguments, codec);
  const auto* config = va_arg(arguments, const unsigned char*);
  const unsigned size = va_arg(arguments, unsigned);
  va_end(arguments);

  int bits = 0;
  int rate = 0;
  int channels = 0;
  const int fields = sscanf(codec, "L%2d/%6d/%2d", &bits, &rate, &channels);
  if (fields >= 1 && bits > 0) bitsPerSample_ = static_cast<uint8_t>(bits);
  if (fields >= 2 && rate > 0) samplingFrequency_ = static_cast<uint32_t>(rate);
  if (fields == 3 && channels > 0) numChannels_ = static_cast<uint8_t>(channels);
  initialise(codec, config, size);
}

void AudioSink::describe(MediaFrame& frame) {
  frame.samplingFrequency = samplingFrequency_;
  frame.numChannels = numChannels_;
  frame.bitsPerSample = bitsPerSample_;
}

void MetadataSink::init(const char* codec, ...) {
  va_list arguments;
  va_start(arguments, codec);
  const auto* config = va_arg(arguments, const unsigned char*);
  const unsigned size = va_arg(arguments, unsigned);
  va_end(arguments);
  initialise(codec, config, size);
}

}  // namespace Kelvane
