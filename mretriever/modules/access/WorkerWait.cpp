#include "WorkerWait.h"

#include <poll.h>
#include <unistd.h>

namespace Kelvane {

namespace {
constexpr int kSliceMs = 250;
}  // namespace

bool sleepUnlessStopped(const Module& worker, int quarterSeconds) {
  for (int i = 0; i < quarterSeconds; ++i) {
    usleep(kSliceMs * 1000);
    if (worker.isStopped()) return false;
  }
  return true;
}

bool readableUnlessStopped(const Module& worker, int socket) {
  pollfd entry{socket, POLLIN, 0};
  while (!worker.isStopped()) {
    if (poll(&entry, 1, kSliceMs) > 0) return true;
  }
  return false;
}

}  // namespace Kelvane
