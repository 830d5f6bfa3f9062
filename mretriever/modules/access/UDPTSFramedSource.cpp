#include "UDPTSFramedSource.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <Groupsock.hh>
#include <algorithm>
#include <cstring>

#include "TransportStream.h"

namespace Kelvane {

namespace {

constexpr std::size_t kLargestDatagram = 65536;
constexpr std::size_t kBatch = 15;

}  // namespace

UDPTSFramedSource* UDPTSFramedSource::createNew(UsageEnvironment& env, Groupsock* socket) {
  return new UDPTSFramedSource(env, socket);
}

UDPTSFramedSource::~UDPTSFramedSource() {
  UDPTSFramedSource::doStopGettingFrames();
}

void UDPTSFramedSource::doGetNextFrame() {
  if (reading_) return;
  reading_ = true;
  envir().taskScheduler().setBackgroundHandling(gs->socketNum(), SOCKET_READABLE, incomingDatagrams,
                                                this);
}

void UDPTSFramedSource::doStopGettingFrames() {
  envir().taskScheduler().disableBackgroundHandling(gs->socketNum());
  reading_ = false;
}

void UDPTSFramedSource::incomingDatagrams(void* clientData, int) {
  auto* source = static_cast<UDPTSFramedSource*>(clientData);
  if (!source->isCurrentlyAwaitingData()) return;
  source->fFrameSize = source->receive();
  if (source->fFrameSize == 0) return;
  source->fNumTruncatedBytes = 0;
  source->fDurationInMicroseconds = 0;
  gettimeofday(&source->fPresentationTime, nullptr);
  afterGetting(source);
}

unsigned UDPTSFramedSource::receive() {
  const std::size_t slots = std::clamp<std::size_t>(fMaxSize / kLargestDatagram, 1, kBatch);
  const std::size_t slotSize = std::min<std::size_t>(fMaxSize, kLargestDatagram);
  mmsghdr datagrams[kBatch] = {};
  iovec places[kBatch];
  for (std::size_t i = 0; i < slots; ++i) {
    places[i] = {fTo + i * slotSize, slotSize};
    datagrams[i].msg_hdr.msg_iov = &places[i];
    datagrams[i].msg_hdr.msg_iovlen = 1;
  }
  const int got =
      recvmmsg(gs->socketNum(), datagrams, static_cast<unsigned>(slots), MSG_DONTWAIT, nullptr);
  std::size_t size = 0;
  for (int i = 0; i < got; ++i) {
    // Without a shorter tail, or the next datagram's packets would begin in it.
    const std::size_t whole =
        datagrams[i].msg_len / TransportStream::kPacketSize * TransportStream::kPacketSize;
    memmove(fTo + size, places[i].iov_base, whole);
    size += whole;
  }
  return static_cast<unsigned>(size);
}

}  // namespace Kelvane
