#pragma once

#include <sys/time.h>
#include <unistd.h>

#include <cstdint>

#include "Module.h"
#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Video from a Samsung DVR over two connections: control, which must be kept
// alive, and stream. start() and the readers run on the host's thread; the
// KeepAliveHolder alone uses the control socket once it is made. A lost
// connection ends the process, so nothing here reconnects, and the stream
// state is never touched.
class SamsungMediaProducerImpl : public NETMediaProducerImpl {
 public:
  SamsungMediaProducerImpl(AbstractSink* audio, AbstractSink* video);
  ~SamsungMediaProducerImpl() override;  // waits for the KeepAliveHolder, 250 ms at most

  bool start() override;

  // A connection to the device; a failure ends the process.
  int get_conn(int port);
  // Login and stream configuration; the device's answers are not looked at.
  void sendConnectAndConfRequests(int sockfd);
  // Return at the stop flag only. A frame is delivered, and stamped, when the
  // first packet of the next one has come.
  void receive_mjpg(int sockfd);
  void receive_mpeg4(int sockfd);

 private:
  // Owns the control socket; a device that does not answer ends the process.
  class KeepAliveHolder : public Module {
   public:
    explicit KeepAliveHolder(int sock);
    void execute() override;

   private:
    bool receiveAnswer();

    int sock_;
  };

  // A write or read that gave zero or less ends the process.
  template <class Request>
  static void sendRequest(int socket, const Request& request) {
    expectWritten(write(socket, request.data(), request.size()));
  }
  static void expectWritten(ssize_t put);
  static void expectRead(ssize_t got);

  template <class FinishFrame>
  void receivePackets(int sockfd, FinishFrame finishFrame);
  void limitReceiveBuffer(int sockfd);
  void deliver();

  bool sawMPEG4Header_ = false;  // set at the first I-frame; nothing depends on it
  std::uint32_t curPos_ = 0;     // bytes of the current frame in the sink's buffer
  timeval pts_{};
  KeepAliveHolder* keepAliveHolder_ = nullptr;
};

}  // namespace Kelvane
