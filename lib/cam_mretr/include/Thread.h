#pragma once

#include <thread>

namespace Kelvane {

// One thread that runs execute(). A subclass that ends its thread keeps a flag
// of its own, clears it in its destructor and calls join() there: this class
// cannot wait for a thread whose execute() is already destroyed.
// An exception that leaves execute() ends the process with an ERROR line.
class Thread {
 public:
  Thread() = default;
  virtual ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  virtual void start();  // returns at once; throws ThreadException if no thread can be made
  virtual void join();   // no effect when not started, detached or already joined
  virtual void detach();
  virtual void execute() = 0;
  virtual void init() {}
  virtual void destroy() {}

 private:
  std::thread thread_;
};

}  // namespace Kelvane
