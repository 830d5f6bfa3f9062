#include "DatagramBatch.h"

#include <algorithm>
#include <cstring>

namespace Kelvane {

void DatagramBatch::receive() {
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
}

int DatagramBatch::read(unsigned char* to, std::size_t size, sockaddr_storage& from) {
  if (!pending()) receive();
  if (!pending()) return 0;
  const std::size_t length = std::min(size, lengths_[next_]);
  memcpy(to, slots_[next_].data(), length);
  from = senders_[next_];
  ++next_;
  return static_cast<int>(length);
}

}  // namespace Kelvane
