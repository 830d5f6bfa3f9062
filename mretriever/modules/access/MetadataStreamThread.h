#pragma once

#include "MediaSinks.h"
#include "Thread.h"
#include "TransportStream.h"

namespace Kelvane {

// Metadata that another program sends as an MPEG transport stream over UDP,
// beside the camera's own stream. Has a sink of its own; made and deleted on
// the event loop's thread, receives on its own one. A port that is taken ends
// the process from there. The socket lives until the process ends.
class MetadataStreamThread : public Thread {
 public:
  MetadataStreamThread(int port, UsageEnvironment& env);
  ~MetadataStreamThread() override;  // waits for at most one time-out

  void execute() override;

 protected:
  void receive(int socket);  // one datagram

 private:
  int bindSocket() const;

  const int port;
  TransportStream ts_;
  volatile bool runnable_ = true;  // a plain flag of the host's thread model
  MetadataSink* dSink_;            // owned, in the event loop's table
};

}  // namespace Kelvane
