#pragma once

#include <unistd.h>

#include "Retriever.h"
#include "Thread.h"

namespace Kelvane {

// Tells the host every two seconds that the process is alive while a listener
// waits for its stream. Touches nothing but the retriever. The destructor
// waits for the running interval to end.
class WaitPIDUpdateThread : public Thread {
 public:
  ~WaitPIDUpdateThread() override {
    runnable = false;
    join();
  }

  void execute() override {
    while (runnable) {
      sleep(2);
      Retriever::instance(nullptr, nullptr, nullptr, nullptr)->updatePid(false, true);
    }
  }

 private:
  volatile bool runnable = true;  // a plain flag of the host's thread model
};

}  // namespace Kelvane
