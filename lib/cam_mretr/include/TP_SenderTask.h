#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "Messenger.h"

namespace Kelvane {

// Sends messages in order on a thread of its own, for callers that must not
// wait for the bus. Any thread may put(); messages that cannot be sent are
// counted.
class TP_SenderTask {
 public:
  // The messenger has to be started. At most `limit` messages wait.
  explicit TP_SenderTask(std::shared_ptr<Messenger> messenger, std::size_t limit = 1000);
  ~TP_SenderTask();  // sends what still waits

  // False, and the message is not taken, when too many wait.
  bool put(Message message);
  std::size_t failures() const;

 private:
  void run();
  std::shared_ptr<Messenger> messenger_;
  const std::size_t limit_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Message> waiting_;
  std::size_t failures_ = 0;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace Kelvane
