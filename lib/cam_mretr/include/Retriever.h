#pragma once

#include <atomic>
#include <string>

#include "Module.h"
#include "StreamState.h"

namespace cms {
class Session;
}

namespace Kelvane {

// The process singleton and root of the processing tree. isStopped() and
// getStopFlagPtr() are the producers' stop signal. Every operation may be
// called from any thread.
class Retriever : public Module {
 public:
  Retriever();  // becomes the instance
  ~Retriever() override;

  // The existing instance; made with defaults when there is none. The
  // arguments are historical and ignored.
  static Retriever* instance(const char*, char*, const std::string*, const std::string*);

  // The frame intake: every frame of every sink passes here, on the thread
  // that received it, and goes on to the children.
  virtual void acceptFrame(CPMediaFrame& frame);

  // Wanted frames per second: the key FRAMERATE, 25 without it.
  float framerate() const;
  void updatePid(bool first, bool second);
  // The session of the message broker, or null. Not owned.
  cms::Session* getCMSSession() const { return cmsSession_.load(); }
  void setCMSSession(cms::Session* session) { cmsSession_.store(session); }

  StreamState& streamState() { return streamState_; }

 private:
  StreamState streamState_;
  std::atomic<cms::Session*> cmsSession_{nullptr};
};

}  // namespace Kelvane
