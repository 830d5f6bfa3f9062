#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>

#include "HostObserver.h"
#include "StopControl.h"

namespace host {

// How the stream is doing: one line that is rewritten on a terminal, a plain
// line every few seconds elsewhere; left out while nobody reads. Events come
// from any thread; tick() is called from one, finish() once, from any.
class StatusLine : public Kelvane::HostObserver, public Ticking {
 public:
  explicit StatusLine(FILE* to);

  // As MEDIA_FORMAT or a sink has it; without it every delivery is a picture.
  void setVideoCodec(const std::string& name);
  std::chrono::milliseconds interval() const override { return interval_; }
  void tick() override;
  void finish();  // a last line about the whole run

  void onInit(Kelvane::MEDIA_TYPE media, const std::string& codec, const std::string&) override;
  void onFrame(const Kelvane::MediaFrame& frame) override;
  void onTrigger(const std::string&) override {}
  void onState(Kelvane::StreamState::STATE state, Kelvane::StreamState::ERRNO error) override;
  void onPid(bool, bool) override {}
  void onExtraData(const std::string&, const timeval&, const std::string&) override {}

 private:
  using Clock = std::chrono::steady_clock;
  struct Counts {
    uint64_t frames = 0;  // pictures
    uint64_t bytes = 0;   // of all media
    Clock::time_point when;
  };
  Counts now() const;
  bool beginsPicture(const Kelvane::MediaFrame& frame) const;
  void print(const Counts& from, const Counts& to, const char* end);

  FILE* to_;
  bool terminal_;
  std::chrono::milliseconds interval_;
  // Codecs whose pictures may come in pieces, a NAL unit or a slice each.
  enum class Pieces { none, h264, mpeg2 };
  std::atomic<Pieces> pieces_{Pieces::none};
  std::atomic<uint64_t> frames_{0};
  std::atomic<uint64_t> bytes_{0};
  std::atomic<int> state_{-1};  // 256 * state + code, once there is one
  Counts begin_;
  Counts last_;
};

}  // namespace host
