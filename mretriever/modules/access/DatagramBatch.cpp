#include "DatagramBatch.h"

#include <algorithm>
#include <cstring>
#include <thread>

namespace Kelvane {

namespace {

// For so long a gigabit line does not fill a quarter of the socket's buffer,
// which counts up to three times the bytes of a datagram.
std::chrono::microseconds harmlessPause(int socket) {
  constexpr int kLine = 125;  // bytes a microsecond
  int room = 0;
  socklen_t size = sizeof room;
  getsockopt(socket, SOL_SOCKET, SO_RCVBUF, &room, &size);
  return std::chrono::microseconds(room / 4 / kLine);
}

}  // namespace

DatagramBatch::DatagramBatch(int socket, unsigned char payloadType)
    : socket_(socket), pause_(std::min(kPause, harmlessPause(socket))), admission_(payloadType) {}

void DatagramBatch::receive() {
  std::this_thread::sleep_until(resume_);
  mmsghdr messages[kDatagrams] = {};
  iovec places[kDatagrams];
  for (std::size_t i = 0; i < kDatagrams; ++i) {
    places[i] = {slots_[i].data(), kLargest};
    messages[i].msg_hdr.msg_iov = &places[i];
    messages[i].msg_hdr.msg_iovlen = 1;
    messages[i].msg_hdr.msg_name = &senders_[i];
    messages[i].msg_hdr.msg_namelen = sizeof senders_[i];
  }
  const int got = recvmmsg(socket_, messages, kDatagrams, MSG_DONTWAIT, nullptr);
  next_ = 0;
  count_ = got > 0 ? static_cast<std::size_t>(got) : 0;
  for (std::size_t i = 0; i < count_; ++i) lengths_[i] = messages[i].msg_len;
  // A full batch says that more wait.
  if (count_ < kDatagrams) resume_ = Clock::now() + pause_;
}

void DatagramBatch::keep() {
  kept_.assign(slots_[next_].data(), slots_[next_].data() + lengths_[next_]);
  keptSender_ = senders_[next_];
}

int DatagramBatch::read(unsigned char* to, std::size_t size, sockaddr_storage& from) {
  const auto handOn = [&](const unsigned char* datagram, std::size_t length,
                          const sockaddr_storage& sender) {
    length = std::min(size, length);
    memcpy(to, datagram, length);
    admission_.numberOn(to, length);
    from = sender;
    return static_cast<int>(length);
  };
  if (!pending()) receive();
  for (; pending(); ++next_) {
    const unsigned char* datagram = slots_[next_].data();
    switch (admission_.judge(datagram, lengths_[next_])) {
      case RtpAdmission::Verdict::keep:
        keep();
        break;
      case RtpAdmission::Verdict::resume:
        return handOn(kept_.data(), kept_.size(), keptSender_);
      case RtpAdmission::Verdict::pass:
        const std::size_t at = next_++;
        return handOn(datagram, lengths_[at], senders_[at]);
    }
  }
  return 0;
}

}  // namespace Kelvane
