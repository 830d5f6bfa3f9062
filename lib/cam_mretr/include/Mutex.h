#pragma once

#include <condition_variable>
#include <mutex>

namespace Kelvane {

class Mutex {
 public:
  virtual ~Mutex() = default;
  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }

 protected:
  std::mutex mutex_;
};

// A mutex with a condition. wait() is called with the mutex locked and returns
// with it locked; wake-ups may be spurious.
class Cond : public Mutex {
 public:
  void signal() { condition_.notify_one(); }
  void wait() {
    std::unique_lock<std::mutex> held(mutex_, std::adopt_lock);
    condition_.wait(held);
    held.release();
  }

 private:
  std::condition_variable condition_;
};

}  // namespace Kelvane
