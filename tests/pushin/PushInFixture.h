#pragma once

#include <sys/socket.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "PushInMediaProducerImpl.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

namespace testsupport {

// The recorder's side: a process that pushes into the socket at `path`.
class PushInPeer {
 public:
  // Waits for the socket; throws std::runtime_error when it does not come.
  explicit PushInPeer(const std::string& path) : fd_(unixSocket(path, false)) {
    const timeval patience{kPatience.count(), 0};
    setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  }
  // One datagram. Throws std::runtime_error when it is not taken in time.
  void send(const std::string& datagram) {
    if (::send(fd_.get(), datagram.data(), datagram.size(), 0) < 0) {
      throw std::runtime_error("the datagram was not taken");
    }
  }

 private:
  Kelvane::UniqueFd fd_;
};

inline std::string recorderSocket(const std::string& id) {
  return "/tmp/." + id + ".media.recorder.sock";
}

// Header lines, each ended here, a Content-Length and the body.
inline std::string pushMessage(const std::string& body,
                               const std::vector<std::string>& lines = {}) {
  std::string message;
  for (const std::string& line : lines) message += line + "\r\n";
  return message + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// A producer that serves, with everything that it hands over.
class PushInServing {
 public:
  explicit PushInServing(const TestHost::Keys& keys = {},
                         Kelvane::PushInMediaAnnoncer* annoncer = nullptr)
      : host(keys),
        producer(host.audio(), host.video(), annoncer),
        path(recorderSocket(Kelvane::Cfg::value("DEVID"))) {
    testing::internal::CaptureStderr();
    host.run(producer);
  }
  ~PushInServing() {
    if (capturing_) stopAndReadLog();
  }

  // Ends the producer; what it wrote to the log since the beginning.
  std::string stopAndReadLog() {
    host.stop();
    EXPECT_TRUE(host.awaitEnd());
    capturing_ = false;
    return testing::internal::GetCapturedStderr();
  }

  TestHost host;
  Kelvane::PushInMediaProducerImpl producer;
  const std::string path;  // of the socket

 private:
  bool capturing_ = true;
};

}  // namespace testsupport
