#pragma once

#include <string>
#include <vector>

#include "PushInMediaProducerImpl.h"
#include "UniqueFd.h"
#include "support/TestHost.h"

namespace testsupport {

// The recorder's side: a process that pushes into the socket at `path`.
class PushInPeer {
 public:
  // Waits for the socket; throws std::runtime_error when it does not come.
  explicit PushInPeer(const std::string& path);
  // One datagram. Throws std::runtime_error when it is not taken in time.
  void send(const std::string& datagram);
  // The bytes in datagrams of at most `size`.
  void sendIn(const std::string& bytes, std::size_t size = 32000);

 private:
  Kelvane::UniqueFd fd_;
};

// "/tmp/.ID.media.recorder.sock"
std::string recorderSocket(const std::string& id);

// Header lines, each ended here, a Content-Length and the body.
std::string pushMessage(const std::string& body, const std::vector<std::string>& lines = {});

// A producer that serves, with everything that it hands over.
class PushInServing {
 public:
  explicit PushInServing(const TestHost::Keys& keys = {},
                         Kelvane::PushInMediaAnnoncer* annoncer = nullptr);
  ~PushInServing();  // stops it

  // Ends the producer; what it wrote to the log since the beginning.
  std::string stopAndReadLog();

  TestHost host;
  Kelvane::PushInMediaProducerImpl producer;
  const std::string path;  // of the socket

 private:
  bool capturing_ = true;
};

}  // namespace testsupport
