#pragma once

#include <cstddef>
#include <cstdint>

namespace Kelvane {

// Tells the packets of a running RTP stream from strays that look like it.
//
// live555 follows every packet of the right payload type. Two strays with other
// sequence numbers leave its reordering buffer out of order, and the picture
// stands still until the numbers have gone round, with 64 kB for each packet
// that waits. So a packet that jumps is kept back until another one follows on
// it, which means that the sender has begun anew (as in RFC 3550, A.1). Of one
// that has begun anew with lower numbers the library would take none until they
// have come up to the old ones, so its packets are numbered on.
class RtpAdmission {
 public:
  enum class Verdict {
    pass,
    keep,   // may be a stray: replaces what has been kept before
    resume  // what has been kept goes first, then this one, judged again
  };

  explicit RtpAdmission(unsigned char payloadType) : payloadType_(payloadType) {}

  // What is no packet of the stream's payload type passes: the library drops it.
  Verdict judge(const unsigned char* packet, std::size_t size);
  // Of a packet that goes to the library.
  void numberOn(unsigned char* packet, std::size_t size) const;

 private:
  bool ofTheStream(const unsigned char* packet, std::size_t size) const;

  const unsigned char payloadType_;
  bool started_ = false, kept_ = false;
  std::uint16_t last_ = 0, keptSequence_ = 0;
  std::uint16_t shift_ = 0;  // from the sender's numbers to the library's
  std::uint32_t source_ = 0;
};

}  // namespace Kelvane
