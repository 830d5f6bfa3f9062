#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "MediaFrame.h"
#include "Thread.h"

namespace Kelvane {

// A node of the processing tree: takes frames from its parent, works on them
// and passes them on to its children, all on the thread that pushes. Children
// are not owned. stop() and isStopped() may be called from any thread.
class Module : public Thread {
 public:
  explicit Module(const std::string& name);
  ~Module() override;

  void execute() override {}
  virtual void stop();
  virtual void pushFrame(CPMediaFrame& frame);
  virtual bool isReady(CPMediaFrame& frame);
  virtual void addChild(Module* child);
  virtual void removeChild(Module* child);
  virtual void setRestart() {}
  // The node's own work. `result` takes a node-defined code and may be null.
  virtual void processFrame(CPMediaFrame& frame, int* result);
  virtual void setThreadName(const std::string& name);

  bool isStopped() const { return stopFlag_.load(std::memory_order_relaxed) != 0; }
  // A char that becomes non-zero at the stop. It is the storage of a
  // std::atomic<char>, to which an event loop may cast it back.
  char* getStopFlagPtr() const { return reinterpret_cast<char*>(&stopFlag_); }

 protected:
  const std::string& name() const { return name_; }

 private:
  std::string name_;
  mutable std::atomic<char> stopFlag_{0};
  std::mutex childrenMutex_;
  std::vector<Module*> children_;
};

}  // namespace Kelvane
