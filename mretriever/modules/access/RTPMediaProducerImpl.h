#pragma once

#include "NETMediaProducerImpl.h"

class Groupsock;
class RTCPInstance;
class RTPSource;

namespace Kelvane {

// Video that a device sends as RTP to a fixed local port, unasked and without
// RTCP. start() runs live555's event loop on the host's thread and stops
// receiving when it returns. A device that falls silent is not noticed.
class RTPMediaProducerImpl : public NETMediaProducerImpl {
 public:
  RTPMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
      : NETMediaProducerImpl(audio, video, nullptr) {}

  bool start() override;

 protected:
  // The end of the source: closes the host's video sink too. The event loop
  // runs on. `clientData` is the producer.
  static void sessionAfterPlaying(void* clientData);
  void closeSource();

  Groupsock* rtpGroupsock_ = nullptr;
  RTPSource* source_ = nullptr;
  RTCPInstance* rtcpInstance_ = nullptr;  // never made: frames carry the wall clock
};

}  // namespace Kelvane
