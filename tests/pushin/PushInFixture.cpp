#include "PushInFixture.h"

#include <sys/socket.h>

#include <stdexcept>

#include "support/TcpPeer.h"

namespace testsupport {

PushInPeer::PushInPeer(const std::string& path) : fd_(unixSocket(path, false)) {
  const timeval patience{kPatience.count(), 0};
  setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

void PushInPeer::send(const std::string& datagram) {
  if (::send(fd_.get(), datagram.data(), datagram.size(), 0) < 0) {
    throw std::runtime_error("the datagram was not taken");
  }
}

void PushInPeer::sendIn(const std::string& bytes, std::size_t size) {
  for (std::size_t at = 0; at < bytes.size(); at += size) send(bytes.substr(at, size));
}

std::string recorderSocket(const std::string& id) {
  return "/tmp/." + id + ".media.recorder.sock";
}

std::string pushMessage(const std::string& body, const std::vector<std::string>& lines) {
  std::string message;
  for (const std::string& line : lines) message += line + "\r\n";
  return message + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

PushInServing::PushInServing(const TestHost::Keys& keys, Kelvane::PushInMediaAnnoncer* annoncer)
    : host(keys),
      producer(host.audio(), host.video(), annoncer),
      path(recorderSocket(Kelvane::Cfg::value("DEVID"))) {
  testing::internal::CaptureStderr();
  host.run(producer);
}

PushInServing::~PushInServing() {
  if (capturing_) stopAndReadLog();
}

std::string PushInServing::stopAndReadLog() {
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
  capturing_ = false;
  return testing::internal::GetCapturedStderr();
}

}  // namespace testsupport
