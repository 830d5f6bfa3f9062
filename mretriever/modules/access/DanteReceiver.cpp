#include <sys/time.h>

#include <cstring>

#include "DanteMediaProducerImpl.h"
#include "DanteWire.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "Mpeg4Headers.h"
#include "PacketReader.h"
#include "Retriever.h"

namespace Kelvane {

using dante::_PACKHEADER;  // NOLINT(bugprone-reserved-identifier): the protocol's name

namespace {

constexpr std::size_t kWordSize = 4;

void expectRead(ssize_t got) {
  if (got <= 0) {
    const auto reason = last_error_message();
    FATAL_REPORT("CRT-5051 Failed read from socket: %s", reason->c_str());
  }
}

[[noreturn]] void failUnknown(const _PACKHEADER& header) {
  const dante::_CMD_PARAMS& info = header.packInfo.cp;
  FATAL_REPORT("Unknown packet type (0x%.8x 0x%.8x 0x%.8x 0x%.8x 0x%.8x 0x%.8x)", header.packSize,
               static_cast<unsigned>(header.packType), static_cast<unsigned>(info.channelNum),
               static_cast<unsigned>(info.Param0), static_cast<unsigned>(info.Param1),
               header.dataSize);
}

// One more header with data of its own stands between the header and the frame.
// Its data are as long as the first header says.
void skipSecondHeader(PacketReader& stream, const _PACKHEADER& packHdr) {
  dante::RawHeader bytes{};
  expectRead(stream.read(bytes.data(), bytes.size()));
  stream.discard(packHdr.dataSize);  // a lost connection shows at the next read
  const _PACKHEADER packHdrDummy = dante::parse(bytes);
  LOG_DEBUG(
      "!!! unexpected packet header after video header (pack type: 0x%x, pack size: %d, data size: "
      "%d). Skiping...",
      static_cast<unsigned>(packHdrDummy.packType), static_cast<int>(packHdrDummy.packSize),
      static_cast<int>(packHdrDummy.dataSize));
}

}  // namespace

void DanteMediaProducerImpl::receive_stream(int sockfd) {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  LOG_INFO("CRT-0000 Entering to loop to receive video stream");
  dante::FrameHead buf{};
  PacketReader stream(sockfd, _PACKHEADER::kSize + buf.size());
  dante::RawHeader bytes{};
  while (!retriever->isStopped()) {
    expectRead(stream.read(bytes.data(), bytes.size()));
    const _PACKHEADER packHdr = dante::parse(bytes);
    switch (packHdr.packType) {
      case dante::kAudioFrame:
        LOG_DEBUG("Skiping audio frame, size = %d", static_cast<int>(packHdr.dataSize));
        stream.discard(packHdr.dataSize);
        break;
      case dante::kVideoFrame:
        receiveVideo(stream, packHdr, buf);
        break;
      default:
        failUnknown(packHdr);
    }
  }
}

// The frame is read to where it is delivered from and turned round in place.
void DanteMediaProducerImpl::receiveVideo(PacketReader& stream, const _PACKHEADER& packHdr,
                                          dante::FrameHead& buf) {
  expectRead(stream.peek(buf.data(), buf.size()));
  const std::uint32_t dataSize = packHdr.dataSize;
  if (buf == dante::kIframeHead || buf == dante::kOtherFrameHead) {
    LOG_DEBUG("Video frame, dataSize: %d", static_cast<int>(dataSize));
  } else {
    skipSecondHeader(stream, packHdr);
  }

  const dante::_VideoInfo& vi = packHdr.packInfo.vi;
  const std::size_t mdDataSize = dante::motionDataSize(vi.width, vi.height);
  LOG_DEBUG("Width: %d, height: %d, md data size: %d, packSize: %d, dataSize: %d, skipSize: %d",
            vi.width, vi.height, static_cast<int>(mdDataSize), static_cast<int>(packHdr.packSize),
            static_cast<int>(dataSize),
            static_cast<int>(packHdr.packSize - _PACKHEADER::kSize - dataSize));
  if (dataSize % kWordSize != 0) FATAL_REPORT("Unaligned data");

  const std::uint32_t pos = buf == dante::kIframeHead ? beginIframe() : 0;
  if (!sawMPEG4Header_) {
    expectRead(stream.discard(dataSize));
  } else {
    // The last word is read but never part of the frame.
    static_assert(kWordSize <= AbstractSink::kSpareBytes);
    if (dataSize > AbstractSink::kBufferSize - pos + kWordSize) {
      FATAL_REPORT("CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE");
    }
    std::uint8_t* frame = vSink_->buffer + pos;
    expectRead(stream.payload(frame, dataSize));
    const std::uint32_t words = dataSize / kWordSize - 1;
    dante::reverseWords(frame, words);
    deliver(pos + words * static_cast<std::uint32_t>(kWordSize));
  }
  stream.discard(mdDataSize);
}

// Stream headers in front of each I-frame; in front of the first one they are
// also a frame of their own. Returns where the frame goes.
std::uint32_t DanteMediaProducerImpl::beginIframe() {
  constexpr auto kSize = static_cast<std::uint32_t>(VOS.size() + dante::kVideoObject.size());
  LOG_DEBUG("We got i-frame (pos: %d)", 0);
  memcpy(vSink_->buffer, VOS.data(), VOS.size());
  memcpy(vSink_->buffer + VOS.size(), dante::kVideoObject.data(), dante::kVideoObject.size());
  if (!sawMPEG4Header_) {
    deliver(kSize);
    sawMPEG4Header_ = true;
  }
  return kSize;
}

void DanteMediaProducerImpl::deliver(std::uint32_t size) {
  timeval now{};
  gettimeofday(&now, nullptr);
  vSink_->addData(vSink_->buffer, size, now);
}

}  // namespace Kelvane
