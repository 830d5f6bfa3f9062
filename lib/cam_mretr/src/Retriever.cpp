#include "Retriever.h"

#include "Cfg.h"
#include "HostObserver.h"

namespace Kelvane {

namespace {
std::atomic<Retriever*> theInstance{nullptr};
constexpr float kDefaultFramerate = 25.0F;
}  // namespace

Retriever::Retriever() : Module("Retriever") {
  theInstance.store(this);
}

Retriever::~Retriever() {
  Retriever* self = this;
  theInstance.compare_exchange_strong(self, nullptr);
}

Retriever* Retriever::instance(const char*, char*, const std::string*, const std::string*) {
  if (Retriever* existing = theInstance.load()) return existing;
  // Never destroyed: worker threads ask for it while the process exits.
  static Retriever* const made = new Retriever;
  return made;
}

void Retriever::acceptFrame(CPMediaFrame& frame) {
  if (HostObserver* observer = hostObserver()) observer->onFrame(*frame);
  pushFrame(frame);
}

float Retriever::framerate() const {
  return Cfg::exist("FRAMERATE") ? Cfg::f_value("FRAMERATE") : kDefaultFramerate;
}

void Retriever::updatePid(bool first, bool second) {
  if (HostObserver* observer = hostObserver()) observer->onPid(first, second);
}

}  // namespace Kelvane
