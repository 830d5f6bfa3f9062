// Stands ahead of the library's function of the same name. Of an RTCP packet
// over TCP that its buffer cannot hold the library leaves the rest unread and
// complains at each call of its handler, for ever; here the rest is dropped.
// Where the library finds its own function first all works as before.
#include <dlfcn.h>
#include <RTCP.hh>
#include <array>

namespace {

constexpr unsigned kLongest = 1438;  // bytes of the library's buffer

}  // namespace

// Reads what has come of a packet.
void RTCPInstance::incomingReportHandler1() {
  if (fNumBytesAlreadyRead < kLongest) {
    using Function = void(RTCPInstance*);
    static auto* const library = reinterpret_cast<Function*>(
        dlsym(RTLD_NEXT, "_ZN12RTCPInstance22incomingReportHandler1Ev"));
    if (library != nullptr) library(this);
    return;
  }
  std::array<unsigned char, 4096> rest;
  unsigned size = 0;
  sockaddr_storage sender{};
  int socket = -1;
  unsigned char channel = 0;
  Boolean incomplete = False;
  fRTCPInterface.handleRead(rest.data(), rest.size(), size, sender, socket, channel, incomplete);
  if (!incomplete) fNumBytesAlreadyRead = 0;
}
