#include "StreamState.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Exceptions.h"
#include "HostLog.h"
#include "HostObserver.h"

namespace Kelvane {

StreamState::~StreamState() {
  if (sock >= 0) close(sock);
}

void StreamState::open(const std::string& path, int objectId) {
  std::lock_guard<std::mutex> held(mutex_);
  if (path.empty() || path.size() >= sizeof name_.sun_path) {
    throw NetworkException("State socket path is empty or too long: " + path);
  }
  const int made = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (made < 0) throw NetworkException("State socket: " + *last_error_message());
  if (sock >= 0) close(sock);
  sock = made;
  objId = objectId;
  name_ = {};
  name_.sun_family = AF_UNIX;
  memcpy(name_.sun_path, path.data(), path.size());
  bInitialized = true;
}

void StreamState::setState(STATE state, ERRNO error, const timeval* when) {
  if (HostObserver* observer = hostObserver()) observer->onState(state, error);
  std::lock_guard<std::mutex> held(mutex_);
  if (!bInitialized) return;
  timeval now{};
  if (when == nullptr) gettimeofday(&now, nullptr);
  const timeval& tv = when == nullptr ? now : *when;
  char text[256];
  const int length =
      snprintf(text, sizeof text, R"({"objid":%d,"state":"%s","errno":"%s","time":[%ld,%ld]})",
               objId, name(state), name(error), tv.tv_sec, tv.tv_usec);
  const auto* to = reinterpret_cast<const sockaddr*>(&name_);
  if (sendto(sock, text, static_cast<std::size_t>(length), MSG_DONTWAIT, to, sizeof name_) < 0) {
    hostError(std::string("Could not send the stream state to ") + name_.sun_path + ": " +
              *last_error_message());
  }
}

const char* StreamState::name(STATE state) {
  switch (state) {
    case UNKNOWN:
      return "UNKNOWN";
    case STARTUP:
      return "STARTUP";
    case CONNECTING:
      return "CONNECTING";
    case STREAMING:
      return "STREAMING";
    case STREAM_LOST:
      return "STREAM_LOST";
  }
  return "?";
}

const char* StreamState::name(ERRNO error) {
  switch (error) {
    case UNK:
      return "UNK";
    case DEV_CLOSED_SOCKET:
      return "DEV_CLOSED_SOCKET";
    case NET_FAILURE:
      return "NET_FAILURE";
    case DEV_UNREACHABLE:
      return "DEV_UNREACHABLE";
  }
  return "?";
}

}  // namespace Kelvane
