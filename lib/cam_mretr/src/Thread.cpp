#include "Thread.h"

#include <cstdlib>
#include <exception>
#include <system_error>

#include "Exceptions.h"
#include "HostLog.h"

namespace Kelvane {

// A thread that is left running here would call into a destroyed object: the
// subclass should have joined.
Thread::~Thread() {
  if (thread_.joinable()) thread_.detach();
}

void Thread::start() {
  try {
    thread_ = std::thread([this] {
      try {
        execute();
      } catch (const std::exception& failure) {
        hostError(std::string("Exception in a worker thread: ") + failure.what());
        exit(1);
      }
    });
  } catch (const std::system_error& failure) {
    throw ThreadException(std::string("Could not start a thread: ") + failure.what());
  }
}

void Thread::join() {
  if (thread_.joinable()) thread_.join();
}

void Thread::detach() {
  if (thread_.joinable()) thread_.detach();
}

}  // namespace Kelvane
