#include "Module.h"

#include <pthread.h>

#include <algorithm>

namespace Kelvane {

Module::Module(const std::string& name) : name_(name) {}

Module::~Module() = default;

void Module::stop() {
  stopFlag_.store(1);
}

void Module::pushFrame(CPMediaFrame& frame) {
  processFrame(frame, nullptr);
  std::lock_guard<std::mutex> held(childrenMutex_);
  for (Module* child : children_) {
    if (child->isReady(frame)) child->pushFrame(frame);
  }
}

bool Module::isReady(CPMediaFrame&) {
  return !isStopped();
}

void Module::addChild(Module* child) {
  std::lock_guard<std::mutex> held(childrenMutex_);
  children_.push_back(child);
}

void Module::removeChild(Module* child) {
  std::lock_guard<std::mutex> held(childrenMutex_);
  children_.erase(std::remove(children_.begin(), children_.end(), child), children_.end());
}

void Module::processFrame(CPMediaFrame&, int*) {}

void Module::setThreadName(const std::string& name) {
  // The kernel keeps 15 characters.
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

}  // namespace Kelvane
