#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>

#include "Module.h"
#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Video from a Verint device. start() and the readers run on the host's thread
// and own the stream connection. The KeepAliveHolder runs from construction on,
// each time over a connection of its own, and ends the process when the
// device's web server fails. So does a lost stream; nothing here reconnects,
// and the stream state is never touched.
class VSIPMediaProducerImpl : public NETMediaProducerImpl {
 public:
  VSIPMediaProducerImpl(AbstractSink* audio, AbstractSink* video);
  ~VSIPMediaProducerImpl() override;  // waits for the KeepAliveHolder

  bool start() override;

  // Return at the stop flag only. A frame is delivered, and stamped, when the
  // first packet of the next one has come.
  void receive_mjpg(int sockfd);
  void receive_mpeg4(int sockfd);

  // Waits of a quarter second between two keep-alives: 10 seconds. Tests make them fewer.
  static int keepAliveQuarters;

 private:
  class KeepAliveHolder : public Module {
   public:
    KeepAliveHolder();
    void execute() override;

   private:
    bool keepAlive(const std::string& request, int port);

    [[maybe_unused]] std::uint16_t fakeParam_ = 2;  // execute() counts in a local
  };

  void finishFrame();
  void expectRoom(std::uint16_t dataSize);
  void beginStream(std::uint16_t dataSize);

  bool sawMPEG4Header_ = false;  // nothing is delivered as MPEG-4 until it is set
  std::uint32_t curPos_ = 0;     // bytes of the current frame in the sink's buffer
  timeval pts_{};
  KeepAliveHolder* keepAliveHolder_;
};

}  // namespace Kelvane
