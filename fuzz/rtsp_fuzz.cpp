// An RTSP camera's description and stream: sections of the input are the SDP,
// the Transport line's parameters and what comes interleaved behind PLAY. The
// first byte picks the keys.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "Cfg.h"
#include "RTSPMediaProducerImpl.h"
#include "Stage.h"

namespace {

class Camera {
 public:
  explicit Camera(fuzz::Stage& stage) : stage_(stage), listener_(listening()) {
    for (std::string* part : {&description_, &transport_, &stream_}) stage.nextPart(*part);
    thread_ = std::thread([this] { serve(); });
  }
  ~Camera() {
    left_ = true;
    thread_.join();
  }
  static int port() { return ntohs(address().sin_port); }

 private:
  static constexpr int kPatienceTries = 10;
  static constexpr int kStreamMs = 2;  // for the client to take the stream

  // One listener for all inputs, and an address of 127.0.0.0/8 for each, so
  // that no pair of ports is waited for.
  static int listening() {
    static const int made = [] {
      const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      address().sin_family = AF_INET;
      socklen_t size = sizeof(sockaddr_in);
      auto* where = reinterpret_cast<sockaddr*>(&address());
      if (bind(fd, where, size) != 0 || listen(fd, 8) != 0 || getsockname(fd, where, &size) != 0) {
        abort();
      }
      return fd;
    }();
    return made;
  }
  static sockaddr_in& address() {
    static sockaddr_in where{};
    return where;
  }

  // A client that waits for more than the input has is stopped.
  bool readable(int fd) {
    pollfd entry{fd, POLLIN, 0};
    for (int tries = 0; !left_; ++tries) {
      if (poll(&entry, 1, 5) > 0) return true;
      if (tries == kPatienceTries) stage_.retriever().stop();
    }
    return false;
  }

  void serve() {
    if (!readable(listener_)) return;
    const Kelvane::UniqueFd client(accept(listener_, nullptr, nullptr));
    std::string request;
    while (readable(client.get())) {
      char block[4096];
      const ssize_t got = recv(client.get(), block, sizeof block, 0);
      if (got <= 0) return;
      request.append(block, static_cast<std::size_t>(got));
      std::size_t end;
      while ((end = request.find("\r\n\r\n")) != std::string::npos) {
        answer(client.get(), request.substr(0, end));
        request.erase(0, end + 4);
      }
    }
  }

  void answer(int client, const std::string& request) {
    const std::size_t at = request.find("CSeq: ");
    if (at == std::string::npos) return;
    std::string text = "RTSP/1.0 200 OK\r\n" + request.substr(at, request.find('\r', at) - at) +
                       "\r\nSession: 1\r\n";
    const bool play = request.rfind("PLAY", 0) == 0;
    if (request.rfind("DESCRIBE", 0) == 0) {
      text += "Content-Type: application/sdp\r\nContent-Length: " +
              std::to_string(description_.size()) + "\r\n\r\n" + description_;
    } else if (request.rfind("SETUP", 0) == 0) {
      text += "Transport: RTP/AVP/TCP;unicast;interleaved=0-1" + transport_ + "\r\n\r\n";
    } else {
      text += "\r\n" + (play ? stream_ : "");
    }
    send(client, text.data(), text.size(), 0);
    if (!play) return;
    poll(nullptr, 0, kStreamMs);
    stage_.retriever().stop();
    shutdown(client, SHUT_WR);  // turns the client's loop
  }

  fuzz::Stage& stage_;
  const int listener_;
  std::string description_, transport_, stream_;
  std::atomic<bool> left_{false};
  std::thread thread_;
};

std::string nextAddress() {
  static unsigned number = 0;
  ++number;
  return "127." + std::to_string(128 + number / 62500 % 100) + "." +
         std::to_string(number / 250 % 250) + "." + std::to_string(1 + number % 250);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  fuzz::Stage stage(data + 1, size - 1,
                    {{"PROTO", "RTSP"},
                     {"CAMERAMODEL", (data[0] & 1) != 0 ? "ACTi" : "any"},
                     {"MEDIA_FORMAT", "h264"},
                     {"RTP_OVER_TCP", "on"},
                     {"RTP_FORCE_MULTICAST", "off"},
                     {"AUDIO", "on"},
                     {"VAE_ACTIVE", "yes"},
                     {"VAE_EDVA_ACTIVE", "yes"},
                     {"DEVIP", nextAddress()},
                     {"RTSP_URL", "/"},
                     {"USRNAME", ""},
                     {"PASSWD", ""}});
  Camera camera(stage);
  Kelvane::Cfg::insert("RTSP_PORT", Camera::port());
  fuzz::Stage::run([&] {
    Kelvane::RTSPMediaProducerImpl(stage.audio(), stage.video(), stage.metadata(), Kelvane::APP_NV)
        .start();
  });
  return 0;
}
