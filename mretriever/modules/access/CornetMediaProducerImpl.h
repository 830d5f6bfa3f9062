#pragma once

#include <netinet/in.h>

#include <memory>

#include "NETMediaProducerImpl.h"
#include "WaitPIDUpdateThread.h"

class FramedSource;
class Groupsock;
class RTCPInstance;

namespace Kelvane {

// An MPEG transport stream over UDP, plain or inside RTP, to a local port or a
// multicast group. Owns the socket, the source and the demultiplexing TSSink,
// which feeds the host's three sinks. start() runs live555's event loop on the
// host's thread and stops receiving when it returns. A sender that falls
// silent is not noticed; a listener tells the host meanwhile that it lives.
class CornetMediaProducerImpl : public NETMediaProducerImpl {
 public:
  // `waits`: a listener, whose sender may come late.
  CornetMediaProducerImpl(AbstractSink* audio, AbstractSink* video, AbstractSink* metadata,
                          bool waits);
  ~CornetMediaProducerImpl() override;

  bool start() override;

 protected:
  class TSSink;

  // The end of the source; the event loop runs on. `clientData` is the producer.
  static void sessionAfterPlaying(void* clientData);
  void openSocket();
  void openSource();
  void closeSource();

  Groupsock* rtpGroupsock_ = nullptr;
  FramedSource* source_ = nullptr;
  RTCPInstance* rtcpInstance_ = nullptr;  // never made
  TSSink* tsSink_;
  const bool supportWaitState;
  std::unique_ptr<WaitPIDUpdateThread> waitPidUpdater;
  const bool usingRTP;

 private:
  std::uint16_t port_ = 0;
};

}  // namespace Kelvane
