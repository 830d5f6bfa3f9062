#pragma once

#include <string>

#include "UniqueFd.h"

namespace Kelvane {

// A blocking TCP connection to a device, or the failure's text: CRT-5006 to
// CRT-5009. Whether that is a fatal report or a plain exit is the caller's.
struct DeviceConnection {
  UniqueFd socket;
  std::string failure;  // empty when connected
};

// Resolves `host` and tries each of its IPv4 addresses on one socket, with no
// time limit of its own. `port` is cut to 16 bits. Callable from any thread.
DeviceConnection connectToDevice(const std::string& host, int port);

}  // namespace Kelvane
