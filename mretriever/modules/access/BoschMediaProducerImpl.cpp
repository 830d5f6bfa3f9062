#include "BoschMediaProducerImpl.h"

#include <sys/time.h>

#include "Cfg.h"
#include "FailureReport.h"
#include "FramePacer.h"
#include "HttpHeader.h"
#include "HttpRequest.h"
#include "HttpStream.h"
#include "Retriever.h"

namespace Kelvane {

namespace {

constexpr std::uint8_t kMark = 0xFF;
// Behind the two bytes at the picture's head, the bytes that no end marker is
// looked for in: one more than other HTTP cameras get.
constexpr std::size_t kJpegHead = 625;

// The picture's length, 0 when it is not told. The first length ends the search.
int readPictureHeader(FILE* stream, char* line, int size) {
  // The status line and the first header.
  for (int discarded = 0; discarded < 2; ++discarded) {
    if (fgets_unlocked(line, size, stream) == nullptr) return 0;
  }
  while (fgets_unlocked(line, size, stream) != nullptr && !isBlankLine(line)) {
    for (const char* name : {"Content-Length:", "Content-length:"}) {
      if (const auto length = headerNumber(line, name)) return *length;
    }
  }
  return 0;
}

// The end of input reads as 0xFF.
std::uint8_t nextByte(FILE* stream) {
  return static_cast<std::uint8_t>(getc_unlocked(stream));
}

}  // namespace

BoschMediaProducerImpl::BoschMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
    : NETMediaProducerImpl(audio, video, nullptr) {}

bool BoschMediaProducerImpl::start() {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  const std::string authorization = configuredAuthorization();
  LOG_DEBUG("Building GET string to server");
  request = buildGetRequest("Connection: Keep-Alive\r\n" + authorization);
  while (true) {
    UniqueFd socket = connectToHttpDevice();
    LOG_DEBUG("Request string:\n%s", request.c_str());
    const std::string format = Cfg::value("MEDIA_FORMAT");
    if (format != "mjpg") FATAL_REPORT("CRT-5013 %s is not currently supported", format.c_str());
    receive_mjpg(socket.get());
    socket.reset();
    if (retriever->isStopped()) return true;
    LOG_INFO("Connection was lost. Reconnecting...");
  }
}

void BoschMediaProducerImpl::receive_mjpg(int sockfd) {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  LOG_INFO("CRT-0000 Entering to loop to receive video stream");
  FramePacer pacer;
  HttpStream stream(sockfd);
  sendRequest(sockfd, request);
  while (!retriever->isStopped()) {
    const int length = read_jpg(stream.get(), vSink_->buffer, AbstractSink::kBufferSize);
    if (length <= 0) break;
    timeval now{};
    gettimeofday(&now, nullptr);
    vSink_->addData(vSink_->buffer, static_cast<unsigned>(length), now);
    const Delay_Interval wait = pacer.next(now, retriever->framerate());
    if (wait != ZERO) delay(wait);
    sendRequest(sockfd, request);
  }
}

int BoschMediaProducerImpl::read_jpg(FILE* stream, std::uint8_t* buf, std::uint32_t size) {
  const auto length = static_cast<std::uint32_t>(
      readPictureHeader(stream, reinterpret_cast<char*>(buf), static_cast<int>(size)));
  while (nextByte(stream) != kMark) {
  }
  buf[0] = kMark;
  buf[1] = nextByte(stream);
  if (buf[1] == kMark) {
    ERROR_REPORT("CRT-5002 Error to read from socket");
    return -1;
  }
  // A negative length is larger than any.
  if (length > 2 && length <= size) {
    return readBlock(stream, buf + 2, length - 2) ? static_cast<int>(length) : -1;
  }
  if (!readBlock(stream, buf + 2, kJpegHead - 2)) return -1;
  return readJpegToEnd(stream, buf, kJpegHead, size, pictureLength_);
}

}  // namespace Kelvane
