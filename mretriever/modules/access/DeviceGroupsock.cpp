#include "DeviceGroupsock.h"

#include <sys/socket.h>

#include <GroupsockHelper.hh>
#include <cerrno>
#include <cstring>
#include <memory>

#include "FailureReport.h"

namespace Kelvane {

namespace {

// Room for a key frame's burst while the event loop is busy. The kernel cuts it
// to net.core.rmem_max and takes memory only for what is queued.
constexpr unsigned kReceiveBuffer = 4 * 1024 * 1024;

// live555 joins a multicast group by itself in the constructor. With an
// interface that does not exist its join fails, which it would complain about,
// and the socket's owner joins.
class WithoutJoin {
 public:
  explicit WithoutJoin(in_addr noInterface) {
    ReceivingInterfaceAddr = noInterface.s_addr;
    Socket::DebugLevel = 0;
  }
  ~WithoutJoin() {
    ReceivingInterfaceAddr = interface_;
    Socket::DebugLevel = debugLevel_;
  }
  WithoutJoin(const WithoutJoin&) = delete;
  WithoutJoin& operator=(const WithoutJoin&) = delete;

 private:
  const ipv4AddressBits interface_ = ReceivingInterfaceAddr;
  const int debugLevel_ = Socket::DebugLevel;
};

Groupsock* open(UsageEnvironment& env, in_addr address, std::uint16_t port) {
  sockaddr_storage name{};
  auto* in = reinterpret_cast<sockaddr_in*>(&name);
  in->sin_family = AF_INET;
  in->sin_addr = address;
  constexpr u_int8_t kTimeToLive = 1;
  const WithoutJoin guard(address);
  auto socket = std::make_unique<Groupsock>(env, name, Port(port), kTimeToLive);
  if (socket->socketNum() < 0) {
    FATAL_REPORT("Can't bind port %d for the stream: %s", port, env.getResultMsg());
  }
  increaseReceiveBufferTo(env, socket->socketNum(), kReceiveBuffer);
  return socket.release();
}

}  // namespace

Groupsock* openUnicast(UsageEnvironment& env, std::uint16_t port) {
  const NoReuse alone(env);
  return open(env, {INADDR_ANY}, port);
}

Groupsock* openMulticast(UsageEnvironment& env, in_addr group, std::uint16_t port) {
  return open(env, group, port);
}

int joinGroup(const Groupsock& socket, in_addr group) {
  const int off = 0;
  setsockopt(socket.socketNum(), IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off);
  // What came to the port since it was bound belongs to other groups.
  char byte = 0;
  while (recv(socket.socketNum(), &byte, sizeof byte, MSG_DONTWAIT) >= 0) continue;
  const ip_mreq request{group, {INADDR_ANY}};
  static_assert(sizeof request == 8);
  if (setsockopt(socket.socketNum(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) < 0) {
    return errno;
  }
  return 0;
}

}  // namespace Kelvane
