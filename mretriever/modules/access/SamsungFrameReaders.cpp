#include <sys/socket.h>
#include <sys/time.h>

#include <cstring>
#include <string>

#include "Cfg.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "FramePacer.h"
#include "Mpeg4Headers.h"
#include "PacketReader.h"
#include "Retriever.h"
#include "SamsungMediaProducerImpl.h"
#include "SamsungWire.h"

namespace Kelvane {

// Both formats arrive in the same packets. Only the first packet of a frame is
// marked, so the frame before it ends there.
template <class FinishFrame>
void SamsungMediaProducerImpl::receivePackets(int sockfd, FinishFrame finishFrame) {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  LOG_INFO("CRT-0000 Entering to loop to receive video stream");
  sendRequest(sockfd, samsung::get_stream_req);
  PacketReader stream(sockfd, samsung::PacketHeader::kSize);
  samsung::RawHeader recv_header{};
  while (!retriever->isStopped()) {
    expectRead(stream.read(recv_header.data(), recv_header.size()));
    const auto header = samsung::parse(recv_header);
    if (!header) FATAL_EXIT("Incorrect Samsung header");
    if (header->startsFrame) {
      expectRead(stream.discard(samsung::PacketHeader::kFrameHeaderSize));
      if (curPos_ != 0) finishFrame();
      curPos_ = 0;
    } else if (curPos_ + header->payloadSize > AbstractSink::kBufferSize) {
      FATAL_EXIT("CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE");
    }
    expectRead(stream.payload(vSink_->buffer + curPos_, header->payloadSize));
    curPos_ += header->payloadSize;
  }
}

void SamsungMediaProducerImpl::receive_mjpg(int sockfd) {
  const float framerate = Retriever::instance(nullptr, nullptr, nullptr, nullptr)->framerate();
  constexpr float kSlow = 15.0F;
  if (framerate <= kSlow) limitReceiveBuffer(sockfd);
  FramePacer pacer;
  receivePackets(sockfd, [&] {
    curPos_ = samsung::trimmedSize(vSink_->buffer, curPos_);
    deliver();
    const Delay_Interval wait = pacer.next(pts_, framerate);
    if (wait != ZERO) delay(wait);
  });
}

void SamsungMediaProducerImpl::receive_mpeg4(int sockfd) {
  // The headers go in front of the frame in place. They may reach into the
  // spare bytes behind a frame that fills the buffer.
  static_assert(VOS.size() <= AbstractSink::kSpareBytes);
  receivePackets(sockfd, [&] {
    curPos_ = samsung::trimmedSize(vSink_->buffer, curPos_);
    if (samsung::hasIVop(vSink_->buffer, curPos_)) {
      memmove(vSink_->buffer + VOS.size(), vSink_->buffer, curPos_);
      memcpy(vSink_->buffer, VOS.data(), VOS.size());
      curPos_ += static_cast<std::uint32_t>(VOS.size());
      sawMPEG4Header_ = true;
    }
    deliver();
  });
}

// At low rates the device is held back through its own send window.
void SamsungMediaProducerImpl::limitReceiveBuffer(int sockfd) {
  const int size = Cfg::value("IMAGESIZE") == "HUGESIZE" ? 1500 : 500;
  if (setsockopt(sockfd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) != 0) {
    const auto reason = last_error_message();
    LOG_ERROR("CRT-5004 Failed to set SO_RCVBUF size: %s", reason->c_str());
  }
}

void SamsungMediaProducerImpl::deliver() {
  gettimeofday(&pts_, nullptr);
  vSink_->addData(vSink_->buffer, curPos_, pts_);
}

}  // namespace Kelvane
