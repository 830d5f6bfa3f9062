#pragma once

#include <sys/time.h>

namespace Kelvane {

// Tells the system about a device that only comes to life when it pushes: its
// position goes to a topic of the message broker, the fact that it is alive
// into the event log. Each goes out at most once a second of message time, and
// not while message time stands behind the last report. Both operations block
// for the length of a call to the broker or the bus, and report their own
// failures to the log. One thread.
//
// The object behind it needs Thrift, the bus and the broker's client library,
// and comes from a shared object of its own.
class PushInMediaAnnoncer {
 public:
  virtual ~PushInMediaAnnoncer() = default;

  // Degrees and metres. A zero is an unknown value: the last known one goes
  // out in its place; three zeros are no position. A topic or a sender that
  // the broker refuses to make ends the process.
  virtual void annonceGPS(const timeval& time, float latitude, float longitude, float altitude) = 0;
  // An empty message stands for the usual one.
  virtual void annonceAlive(const timeval& time, char* message) = 0;
};

}  // namespace Kelvane

// Connects to the message bus of the installation's master node (key
// MASTER_NODE, "localhost" without it); throws std::runtime_error when that
// cannot be reached. The caller owns the result.
constexpr char kAnnouncerLibrary[] = "libmretriever_announcer.so";
constexpr char kAnnouncerFactory[] = "mretriever_createPushInMediaAnnoncer";
extern "C" Kelvane::PushInMediaAnnoncer* mretriever_createPushInMediaAnnoncer();
