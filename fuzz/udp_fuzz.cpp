// Cameras that send to a port unasked: each section of the input is a datagram
// of RTP, or of a transport stream with or without RTP around it. The first
// byte picks what the port is configured for.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <RTPSource.hh>
#include <array>

#include "Cfg.h"
#include "CornetMediaProducerImpl.h"
#include "MetadataStreamThread.h"
#include "RTPMediaProducerImpl.h"
#include "Stage.h"

namespace {

struct Camera {
  const char* proto;
  const char* model;
  const char* format;
};
constexpr std::array<Camera, 9> kCameras{{{"UDP", "Cornet", "h264"},
                                          {"UDP", "Cornet", "mpeg2"},
                                          {"RTP", "Cornet", "h264"},
                                          {"RTP", "any", "mpeg2"},
                                          {"RTP", "Radiant", "mpeg2"},
                                          {"RTP", "any", "mjpg"},
                                          {"RTP", "any", "mpeg4"},
                                          {"RTP", "any", "h264"},
                                          {"metadata", "", ""}}};

sockaddr* generic(sockaddr_in& name) {
  return reinterpret_cast<sockaddr*>(&name);
}

class Sender {
 public:
  explicit Sender(fuzz::Stage& stage) : stage_(stage) { to_.sin_family = AF_INET; }

  // A socket of its own at a free port, which is sent to.
  Kelvane::UniqueFd receiver() {
    Kelvane::UniqueFd made = udpSocket();
    to_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof to_;
    if (bind(made.get(), generic(to_), size) != 0 ||
        getsockname(made.get(), generic(to_), &size) != 0) {
      __builtin_trap();
    }
    return made;
  }
  int port() const { return ntohs(to_.sin_port); }

  // The next datagram; false when there is none.
  bool send() {
    std::string datagram;
    if (!stage_.nextPart(datagram)) return false;
    sendto(socket_.get(), datagram.data(), datagram.size(), 0, generic(to_), sizeof to_);
    return true;
  }

  // Sends more than a batch at once when all has been read from `receiver`.
  bool sendMore(int receiver) {
    pollfd entry{receiver, POLLIN, 0};
    if (poll(&entry, 1, 0) > 0) {
      idle_ = 0;
      return true;
    }
    if (++idle_ < kTurns) return true;  // of a frame that has been read
    idle_ = 0;
    if (!send()) return false;
    for (int more = 1; more < kLot && send();) ++more;
    return true;
  }

 private:
  static constexpr int kLot = 20;
  static constexpr int kTurns = 4;

  static Kelvane::UniqueFd udpSocket() {
    return Kelvane::UniqueFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  }

  fuzz::Stage& stage_;
  const Kelvane::UniqueFd socket_ = udpSocket();
  sockaddr_in to_{};
  int idle_ = 0;
};

// A producer as a survivor of its own end, whose socket can be asked.
class TransportStream : public Kelvane::CornetMediaProducerImpl {
 public:
  explicit TransportStream(fuzz::Stage& stage)
      : CornetMediaProducerImpl(stage.audio(), stage.video(), stage.metadata(), false) {}
  int socket() { return rtpGroupsock_->socketNum(); }
  RTPSource* source() { return usingRTP ? static_cast<RTPSource*>(source_) : nullptr; }
};

class PlainRtp : public Kelvane::RTPMediaProducerImpl {
 public:
  explicit PlainRtp(fuzz::Stage& stage) : RTPMediaProducerImpl(stage.audio(), stage.video()) {}
  ~PlainRtp() override { closeSource(); }
  int socket() { return rtpGroupsock_->socketNum(); }
  RTPSource* source() { return source_; }
};

template <class Producer>
void play(fuzz::Stage& stage, Sender& sender) {
  fuzz::Stage::run([&] {
    Producer producer(stage);
    stage.eachTurn([&] {
      // No wait for a packet that is missing: the result must not depend on time.
      if (RTPSource* source = producer.source()) source->setPacketReorderingThresholdTime(0);
      return sender.sendMore(producer.socket());
    });
    producer.start();
  });
}

class Metadata : public Kelvane::MetadataStreamThread {
 public:
  explicit Metadata(fuzz::Stage& stage) : MetadataStreamThread(0, stage.video()->envir()) {}
  using MetadataStreamThread::receive;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Camera& camera = kCameras[data[0] % kCameras.size()];
  fuzz::Stage stage(
      data + 1, size - 1,
      {{"PROTO", camera.proto}, {"CAMERAMODEL", camera.model}, {"MEDIA_FORMAT", camera.format}});
  Sender sender(stage);
  Kelvane::UniqueFd receiver = sender.receiver();
  Kelvane::Cfg::insert("RTP_UNICAST_PORT", sender.port());
  if (camera.proto == std::string("metadata")) {
    Metadata metadata(stage);
    while (sender.send()) metadata.receive(receiver.get());
    return 0;
  }
  receiver.reset();  // the producer's from here on
  if (camera.model == std::string("Cornet")) {
    play<TransportStream>(stage, sender);
  } else {
    play<PlainRtp>(stage, sender);
  }
  return 0;
}
