#pragma once

#include "Module.h"

namespace Kelvane {

// Waiting in a worker whose owner stops and then joins it: each wait looks at
// the worker's stop flag every 250 milliseconds, on the worker's thread.

// Sleeps that many times 250 milliseconds; false as soon as it is stopped.
bool sleepUnlessStopped(const Module& worker, int quarterSeconds);

// True when a read from `socket` would not block; false when stopped.
bool readableUnlessStopped(const Module& worker, int socket);

}  // namespace Kelvane
