#pragma once

#include <array>
#include <mutex>
#include <string>

#include "HostObserver.h"

namespace host {

// Everything that the module hands over, as JSON Lines. Each line is written
// whole and at once, so nothing is lost however the process ends. A write that
// fails is reported once and ends the trace, not the stream. Any thread.
class TraceWriter : public Kelvane::HostObserver {
 public:
  // "-": standard output. Throws std::system_error.
  explicit TraceWriter(const std::string& file);
  ~TraceWriter() override;
  TraceWriter(const TraceWriter&) = delete;
  TraceWriter& operator=(const TraceWriter&) = delete;

  void started(const std::string& producer);
  void stopped(const char* reason);
  void ended(bool result);

  void onInit(Kelvane::MEDIA_TYPE media, const std::string& codec,
              const std::string& config) override;
  void onFrame(const Kelvane::MediaFrame& frame) override;
  void onTrigger(const std::string& text) override;
  void onState(Kelvane::StreamState::STATE state, Kelvane::StreamState::ERRNO error) override;
  void onPid(bool first, bool second) override;
  void onExtraData(const std::string& name, const timeval& tv, const std::string& record) override;

 private:
  class Line;

  int fd_;
  std::mutex mutex_;
  bool failed_ = false;
  std::string text_;                   // of the line being made
  std::array<std::string, 3> codecs_;  // by MEDIA_TYPE
};

// `text` as a JSON string with its quotes; bytes that are no UTF-8 become U+FFFD.
std::string jsonString(const std::string& text);

}  // namespace host
