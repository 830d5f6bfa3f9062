#pragma once

#include <FramedSource.hh>

class Groupsock;

namespace Kelvane {

// Datagrams of a transport stream as a live555 source. One delivery holds
// what the socket had queued: the whole packets of each datagram, back to back.
// The socket is the producer's.
class UDPTSFramedSource : public FramedSource {
 public:
  static UDPTSFramedSource* createNew(UsageEnvironment& env, Groupsock* socket);

 protected:
  UDPTSFramedSource(UsageEnvironment& env, Groupsock* socket) : FramedSource(env), gs(socket) {}
  ~UDPTSFramedSource() override;

 private:
  void doGetNextFrame() override;
  void doStopGettingFrames() override;
  static void incomingDatagrams(void* clientData, int mask);
  // Bytes received, 0 when there was nothing of use.
  unsigned receive();

  Groupsock* gs;
  bool reading_ = false;
};

}  // namespace Kelvane
