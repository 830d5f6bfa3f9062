#include <sys/time.h>

#include <algorithm>
#include <cstring>

#include "Exceptions.h"
#include "FailureReport.h"
#include "FramePacer.h"
#include "PacketReader.h"
#include "Retriever.h"
#include "VSIPMediaProducerImpl.h"
#include "VSIPWire.h"

namespace Kelvane {

namespace {

void expectRead(ssize_t got) {
  if (got <= 0) {
    const auto reason = last_error_message();
    FATAL_EXIT("CRT-5051 Failed read from socket: %s", reason->c_str());
  }
}

}  // namespace

void VSIPMediaProducerImpl::receive_mjpg(int sockfd) {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  FramePacer pacer;
  PacketReader stream(sockfd, vsip::PacketHeader::kSize);
  vsip::RawHeader hdr{};
  LOG_INFO("CRT-0000 Entering to loop to receive video stream");
  while (!retriever->isStopped()) {
    expectRead(stream.read(hdr.data(), hdr.size()));
    const vsip::PacketHeader header = vsip::parse(hdr);
    if (header.seqNum != 0) {
      expectRoom(header.dataSize);
    } else if (curPos_ != 0) {
      finishFrame();
      const Delay_Interval wait = pacer.next(pts_, retriever->framerate());
      if (wait != ZERO) delay(wait);
    }
    expectRead(stream.payload(vSink_->buffer + curPos_, header.dataSize));
    curPos_ += header.dataSize;
  }
}

void VSIPMediaProducerImpl::receive_mpeg4(int sockfd) {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  vsip::RawHeader hdr{};
  vsip::PayloadHead head{};
  PacketReader stream(sockfd, hdr.size() + head.size());
  LOG_INFO("CRT-0000 Entering to loop to receive video stream");
  while (!retriever->isStopped()) {
    expectRead(stream.read(hdr.data(), hdr.size()));
    const std::uint16_t dataSize = vsip::parse(hdr).dataSize;
    expectRead(stream.peek(head.data(), head.size()));
    if (!vsip::startsFrame(head)) {
      expectRoom(dataSize);
    } else if (curPos_ != 0) {
      finishFrame();
    }
    expectRead(stream.payload(vSink_->buffer + curPos_, dataSize));
    if (sawMPEG4Header_) {
      curPos_ += dataSize;
    } else if (vsip::startsStream(vSink_->buffer)) {
      beginStream(dataSize);
    }
  }
}

void VSIPMediaProducerImpl::finishFrame() {
  gettimeofday(&pts_, nullptr);
  vSink_->addData(vSink_->buffer, curPos_, pts_);
  curPos_ = 0;
}

void VSIPMediaProducerImpl::expectRoom(std::uint16_t dataSize) {
  if (curPos_ + dataSize > AbstractSink::kBufferSize) {
    FATAL_EXIT("CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE");
  }
}

// The stream headers are a frame of their own; what stands behind them begins
// the next one. The picture may be found in bytes that older packets left: then
// the wrapped rest counts, as far as the buffer goes.
void VSIPMediaProducerImpl::beginStream(std::uint16_t dataSize) {
  std::uint8_t* buffer = vSink_->buffer;
  const auto headers = vsip::streamHeadersSize(buffer, AbstractSink::kBufferSize);
  if (!headers) FATAL_EXIT("CRT-5058 Incorrect header");
  sawMPEG4Header_ = true;
  gettimeofday(&pts_, nullptr);
  vSink_->addData(buffer, *headers, pts_);
  const auto rest = static_cast<std::uint16_t>(dataSize - *headers);
  const std::uint32_t there = AbstractSink::kBufferSize - *headers;
  memmove(buffer, buffer + *headers, std::min<std::uint32_t>(rest, there));
  curPos_ += rest;
}

}  // namespace Kelvane
