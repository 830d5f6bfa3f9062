#pragma once

#include <vector>

#include "HostObserver.h"

namespace host {

// Passes each event on to several observers, in the order in which they were
// added. Complete before the first event; the observers are not owned.
class ObserverFan : public Kelvane::HostObserver {
 public:
  void add(HostObserver* observer) { observers_.push_back(observer); }

  void onInit(Kelvane::MEDIA_TYPE media, const std::string& codec,
              const std::string& config) override {
    for (HostObserver* each : observers_) each->onInit(media, codec, config);
  }
  void onFrame(const Kelvane::MediaFrame& frame) override {
    for (HostObserver* each : observers_) each->onFrame(frame);
  }
  void onTrigger(const std::string& text) override {
    for (HostObserver* each : observers_) each->onTrigger(text);
  }
  void onState(Kelvane::StreamState::STATE state, Kelvane::StreamState::ERRNO error) override {
    for (HostObserver* each : observers_) each->onState(state, error);
  }
  void onPid(bool first, bool second) override {
    for (HostObserver* each : observers_) each->onPid(first, second);
  }
  void onExtraData(const std::string& name, const timeval& tv, const std::string& record) override {
    for (HostObserver* each : observers_) each->onExtraData(name, tv, record);
  }

 private:
  std::vector<HostObserver*> observers_;
};

}  // namespace host
