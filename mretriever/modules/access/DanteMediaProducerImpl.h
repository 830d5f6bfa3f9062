#pragma once

#include <cstdint>

#include "DanteWire.h"
#include "NETMediaProducerImpl.h"

namespace Kelvane {

class PacketReader;

// MPEG-4 video from a Dante encoder, all on the host's thread: the encoder is
// configured over two connections in turn, then a third one logs in and carries
// the stream. A failure or a lost connection ends the process with a report of
// the lost stream, so nothing here reconnects.
class DanteMediaProducerImpl : public NETMediaProducerImpl {
 public:
  DanteMediaProducerImpl(AbstractSink* audio, AbstractSink* video);

  bool start() override;

  // A connection to the device; a failure ends the process.
  int get_conn(int port);
  // Reads the encoder's parameters, changes six of them and writes them back
  // over a connection of their own. Closes `sockfd`.
  void sendConfRequest(int sockfd);
  // Returns at the stop flag only. Nothing is delivered before the first
  // I-frame; audio is skipped.
  void receive_stream(int sockfd);

 private:
  void sendLogin(int sockfd);
  void receiveVideo(PacketReader& stream, const dante::_PACKHEADER& packHdr, dante::FrameHead& buf);
  std::uint32_t beginIframe();
  void deliver(std::uint32_t size);

  bool sawMPEG4Header_ = false;  // nothing is delivered until it is set
};

}  // namespace Kelvane
