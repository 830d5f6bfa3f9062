#pragma once

#include <atomic>
#include <chrono>
#include <string>

#include "HostObserver.h"
#include "StopControl.h"

namespace host {

// Tells the service manager that started this process how it is doing, by the
// datagrams of sd_notify(3); without one it does nothing. The watchdog is fed
// only while frames or signs of life come: a blocked read has no time limit,
// so a camera that goes mute is left for the manager to notice.
class ServiceManager : public Kelvane::HostObserver, public Ticking {
 public:
  ServiceManager();

  void ready();
  void stopping();
  std::chrono::milliseconds interval() const override { return interval_; }
  void tick() override;

  void onInit(Kelvane::MEDIA_TYPE, const std::string&, const std::string&) override {}
  void onFrame(const Kelvane::MediaFrame&) override { alive_.store(true); }
  void onTrigger(const std::string&) override {}
  void onState(Kelvane::StreamState::STATE, Kelvane::StreamState::ERRNO) override {}
  void onPid(bool, bool) override { alive_.store(true); }
  void onExtraData(const std::string&, const timeval&, const std::string&) override {}

 private:
  void send(const std::string& text) const;

  std::string socket_;  // empty: nobody wants to know
  std::chrono::milliseconds interval_{std::chrono::hours(24)};
  std::atomic<bool> alive_{true};
};

}  // namespace host
