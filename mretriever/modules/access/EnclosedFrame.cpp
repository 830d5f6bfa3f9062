// Stands ahead of the library's function of the same name, which trusts the
// lengths within a packet: an H.264 aggregate that ends within a unit's header
// would be asked for its next frame for ever, and one with a length that is too
// large has the bytes behind the packet in its last frame. Where the library
// finds its own function first all works as before.
#include <MultiFramedRTPSource.hh>
#include <algorithm>
#include <cstring>

namespace {

constexpr unsigned kSecond = 1000000;  // microseconds

}  // namespace

// Hands on the next frame of a packet.
void BufferedPacket::use(unsigned char* to, unsigned toSize, unsigned& bytesUsed,
                         unsigned& bytesTruncated, unsigned short& rtpSeqNo, unsigned& rtpTimestamp,
                         timeval& presentationTime, Boolean& hasBeenSyncedUsingRTCP,
                         Boolean& rtpMarkerBit) {
  const unsigned size = dataSize();
  unsigned char* frame = data();
  unsigned frameSize = 0;
  unsigned duration = 0;
  getNextEnclosedFrameParameters(frame, size, frameSize, duration);
  const unsigned header = std::min(size, static_cast<unsigned>(frame - data()));
  frameSize = std::min(frameSize, size - header);
  bytesUsed = std::min(frameSize, toSize);
  // Of all parts of a frame that came in several packets.
  bytesTruncated = frameSize > toSize ? bytesTruncated + frameSize - toSize : 0;
  memmove(to, frame, bytesUsed);

  const bool stuck = header + frameSize == 0;
  skip(stuck ? size : header + frameSize);
  ++fUseCount;
  rtpSeqNo = fRTPSeqNo;
  rtpTimestamp = fRTPTimestamp;
  presentationTime = fPresentationTime;
  hasBeenSyncedUsingRTCP = fHasBeenSyncedUsingRTCP;
  rtpMarkerBit = fRTPMarkerBit;

  const auto micros = static_cast<unsigned>(fPresentationTime.tv_usec) + duration;
  fPresentationTime.tv_sec += micros / kSecond;
  fPresentationTime.tv_usec = micros % kSecond;
}
