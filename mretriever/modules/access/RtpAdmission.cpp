#include "RtpAdmission.h"

namespace Kelvane {

namespace {

constexpr std::size_t kHeader = 12;
constexpr unsigned char kVersionBits = 0xC0, kVersion2 = 0x80, kTypeBits = 0x7F;
// Packets that may be missing, and how far one may be behind.
constexpr int kMissing = 3000, kBehind = 100;

std::uint16_t sequenceOf(const unsigned char* packet) {
  return static_cast<std::uint16_t>(packet[2] << 8 | packet[3]);
}

// Sequence numbers go round.
int distance(std::uint16_t from, std::uint16_t to) {
  return static_cast<std::int16_t>(to - from);
}

}  // namespace

bool RtpAdmission::ofTheStream(const unsigned char* packet, std::size_t size) const {
  return size >= kHeader && (packet[0] & kVersionBits) == kVersion2 &&
         (packet[1] & kTypeBits) == payloadType_;
}

RtpAdmission::Verdict RtpAdmission::judge(const unsigned char* packet, std::size_t size) {
  if (!ofTheStream(packet, size)) return Verdict::pass;
  const std::uint16_t sequence = sequenceOf(packet);
  std::uint32_t source = 0;
  for (int i = 8; i < 12; ++i) source = source << 8 | packet[i];

  const int ahead = distance(last_, sequence);
  const bool near = source == source_ && ahead >= -kBehind && ahead <= kMissing;
  // Some senders change their source within a stream that goes on.
  if (!started_ || near || ahead == 1) {
    if (!started_ || ahead > 0) last_ = sequence;
    started_ = true;
    kept_ = false;
    source_ = source;
    return Verdict::pass;
  }
  if (kept_ && distance(keptSequence_, sequence) == 1) {
    kept_ = false;
    // One number is left out: the library must not join what is before and behind.
    if (distance(last_, keptSequence_) < 0) {
      shift_ = static_cast<std::uint16_t>(shift_ + last_ + 2 - keptSequence_);
    }
    last_ = keptSequence_;
    source_ = source;
    return Verdict::resume;
  }
  kept_ = true;
  keptSequence_ = sequence;
  return Verdict::keep;
}

void RtpAdmission::numberOn(unsigned char* packet, std::size_t size) const {
  if (shift_ == 0 || !ofTheStream(packet, size)) return;
  const auto number = static_cast<std::uint16_t>(sequenceOf(packet) + shift_);
  packet[2] = static_cast<unsigned char>(number >> 8);
  packet[3] = static_cast<unsigned char>(number & 0xFF);
}

}  // namespace Kelvane
