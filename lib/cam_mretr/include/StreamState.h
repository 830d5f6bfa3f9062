#pragma once

#include <sys/time.h>
#include <sys/un.h>

#include <mutex>
#include <string>

namespace Kelvane {

// Tells the watchers of this camera how its stream is: one datagram a change
// to a Unix socket, as JSON: {"objid":7,"state":"STREAM_LOST","errno":"NET_FAILURE",
// "time":[seconds,microseconds]}. Without a socket the state only reaches the
// HostObserver. Safe from several threads; never blocks on a slow watcher.
class StreamState {
 public:
  enum STATE { UNKNOWN = 0, STARTUP = 1, CONNECTING = 2, STREAMING = 3, STREAM_LOST = 4 };
  enum ERRNO { UNK = 0, DEV_CLOSED_SOCKET = 1, NET_FAILURE = 2, DEV_UNREACHABLE = 3 };

  StreamState() = default;
  ~StreamState();
  StreamState(const StreamState&) = delete;
  StreamState& operator=(const StreamState&) = delete;

  // The datagrams' destination; throws NetworkException when `path` is too
  // long or no socket can be made. The receiver need not exist yet.
  void open(const std::string& path, int objectId);
  // `when` null: now.
  void setState(STATE state, ERRNO error, const timeval* when);

  static const char* name(STATE state);
  static const char* name(ERRNO error);

 private:
  std::mutex mutex_;
  int objId = 0;
  int sock = -1;
  bool bInitialized = false;
  sockaddr_un name_{};
};

}  // namespace Kelvane
