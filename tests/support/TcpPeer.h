#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "UniqueFd.h"

namespace testsupport {

// Literal bytes: bytes({0x53, 0x44}) or hex("53 44").
std::string bytes(std::initializer_list<int> values);
std::string hex(const std::string& digits);

// An RTP packet with the marker set.
std::string rtp(int sequence, const std::string& payload, int type = 96, int ssrc = 1);
// A socket for datagrams at `path`, bound or (`bound` false) connected once somebody serves it.
// Throws std::runtime_error.
Kelvane::UniqueFd unixSocket(const std::string& path, bool bound);

// Both ends of a connection of that type (SOCK_STREAM, ...). Throws std::runtime_error.
struct SocketPair {
  explicit SocketPair(int type);
  Kelvane::UniqueFd near, far;
};

// One connection on the device's side. Reads have a deadline.
class PeerConnection {
 public:
  explicit PeerConnection(int fd) : fd_(fd) {}
  // Exactly `size` bytes, or what came before the deadline or the end.
  std::string read(std::size_t size);
  // Up to and with `end`.
  std::string readUntil(const std::string& end);
  // False when the other side is gone.
  bool write(const std::string& data);
  bool awaitClose();  // true when the other side closes in time
  void close() { fd_.reset(); }
  void reset();  // closes with a connection reset
  bool open() const { return static_cast<bool>(fd_); }

 private:
  Kelvane::UniqueFd fd_;
};

// A listening socket that plays a device.
class TcpPeer {
 public:
  // Port 0: any free one. Throws std::runtime_error.
  explicit TcpPeer(const std::string& address = "127.0.0.1", int port = 0);
  int port() const { return port_; }
  // The next connection; not open() when none came in time.
  PeerConnection accept();

 private:
  Kelvane::UniqueFd fd_;
  int port_ = 0;
};

}  // namespace testsupport
