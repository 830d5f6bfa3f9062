// A process that pushes messages into the socket: each section of the input
// is a datagram. A zero and a number at its beginning stand for so many times
// 64 bytes. The first byte of the input picks whether the site is told.
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "PushInMediaProducerImpl.h"
#include "Stage.h"

namespace {

class Site : public Kelvane::PushInMediaAnnoncer {
 public:
  void annonceGPS(const timeval&, float latitude, float longitude, float altitude) override {
    if (latitude == 0 && longitude == 0 && altitude == 0) __builtin_trap();
  }
  void annonceAlive(const timeval&, char* message) override {
    if (strlen(message) >= Kelvane::PushInHeaders::kTextSize) __builtin_trap();
  }
};

// Pushes as many datagrams at once as wait in a socket. Each lot ends with
// empty ones, at which reads return that would wait for the rest of a message:
// a message reads at most two of them.
class Pusher {
 public:
  Pusher(fuzz::Stage& stage, const std::string& id)
      : stage_(stage), socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    peer_.sun_family = AF_UNIX;
    ("/tmp/." + id + ".media.recorder.sock").copy(peer_.sun_path, sizeof peer_.sun_path - 1);
  }

  bool push() {
    if (!connected_) {
      connected_ = connect(socket_.get(), reinterpret_cast<sockaddr*>(&peer_), sizeof peer_) == 0;
      if (!connected_) __builtin_trap();
    }
    int unread = 0;
    if (ioctl(socket_.get(), SIOCOUTQ, &unread) != 0) __builtin_trap();
    if (unread > 0) return true;
    std::string datagram;
    if (!stage_.nextPart(datagram)) return false;
    int count = 0;
    do {
      send(datagram);
    } while (++count < kLot && stage_.nextPart(datagram));
    send("");
    send("");
    return true;
  }

 private:
  static constexpr int kLot = 8;

  void send(std::string datagram) {
    if (datagram.size() > 1 && datagram[0] == '\0') {
      datagram.replace(0, 2, static_cast<unsigned char>(datagram[1]) * std::size_t{64}, 'x');
    }
    if (::send(socket_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT) < 0) {
      __builtin_trap();
    }
  }

  fuzz::Stage& stage_;
  const Kelvane::UniqueFd socket_;
  sockaddr_un peer_{};
  bool connected_ = false;
};

// A buffer that inputs overfill, no larger than it says.
void shrinkBuffer(Kelvane::AbstractSink& sink) {
  constexpr unsigned kBytes = 65536;
  free(sink.buffer);
  sink.buffer = static_cast<unsigned char*>(malloc(kBytes + Kelvane::AbstractSink::kSpareBytes));
  sink.bufferSize = kBytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string id = "fuzz-" + std::to_string(getpid());
  fuzz::Stage stage(data + 1, size - 1, {{"PROTO", "HTTP"}, {"DEVID", id}});
  shrinkBuffer(*stage.video());
  Pusher pusher(stage, id);
  stage.eachTurn([&] { return pusher.push(); });
  fuzz::Stage::run([&] {
    Kelvane::PushInMediaProducerImpl(stage.audio(), stage.video(),
                                     (data[0] & 1) != 0 ? new Site : nullptr)
        .start();
  });
  return 0;
}
