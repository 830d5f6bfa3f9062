#pragma once

#include <memory>
#include <thread>

#include "Messenger.h"

namespace Kelvane {

// Works off what a started messenger receives, on a thread of its own. A
// subclass calls stop() in its destructor, before its own members go.
class MessagesProcessor {
 public:
  explicit MessagesProcessor(std::shared_ptr<Messenger> messenger);
  virtual ~MessagesProcessor();

  void start();
  // Ends receiving on the messenger and waits for the thread.
  void stop();

 protected:
  virtual void processMessage(const Message& message) = 0;
  // A message could not be received or processed; the next one follows.
  virtual void processFailure(const std::exception& failure) = 0;

 private:
  void run();
  std::shared_ptr<Messenger> messenger_;
  std::thread thread_;
};

}  // namespace Kelvane
