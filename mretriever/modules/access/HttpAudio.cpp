// The audio half of HTTPMediaProducerImpl.
#include <sys/time.h>

#include <MPEG4LATMAudioRTPSource.hh>
#include <cstring>

#include "Exceptions.h"
#include "FailureReport.h"
#include "HTTPMediaProducerImpl.h"
#include "HttpContentType.h"
#include "HttpHeader.h"
#include "Retriever.h"
#include "SocketIo.h"

namespace Kelvane {

namespace {

constexpr int kLineRoom = 256;
constexpr std::size_t kBlockSize = 240;
constexpr unsigned kCodecSize = 64;

bool holds(const std::string& line, const char* text) {
  return line.find(text) != std::string::npos;
}

bool isStopped() {
  return Retriever::instance(nullptr, nullptr, nullptr, nullptr)->isStopped();
}

void deliver(AbstractSink* sink, unsigned size) {
  timeval now{};
  gettimeofday(&now, nullptr);
  AbstractSink::afterGettingFrame(sink, size, 0, now, 0);
}

}  // namespace

void HTTPMediaProducerImpl::receive_audio(int sockfd) {
  Multipart multipart;
  const std::string contentType = readContentType(sockfd, multipart);
  LOG_DEBUG("HTTP content type: %s", contentType.c_str());
  char RTPCodecStr[kCodecSize];
  getRTPCodecStrFromHTTPContentType(contentType.c_str(), RTPCodecStr, sizeof RTPCodecStr);
  if (strcmp(RTPCodecStr, "MPEG4-GENERIC") == 0) refuseAac(contentType);
  aSink_->init(RTPCodecStr, nullptr, 0U);
  if (multipart.announced) {
    receiveMultipartAudio(sockfd);
  } else {
    receivePlainAudio(sockfd);
  }
}

void HTTPMediaProducerImpl::getRTPCodecStrFromHTTPContentType(const char* contentType, char* codec,
                                                              unsigned int size) {
  const char* name = audioCodec(contentType);
  if (name == nullptr) FATAL_REPORT("Unknown Content-Type: %s", contentType);
  strncpy(codec, name, size);
}

// The line with the content type; of a multipart response that of its first
// part. Blank lines do not end the search. At the end of input the last line
// has to do.
std::string HTTPMediaProducerImpl::readContentType(int fd, Multipart& multipart) {
  // This model announces the boundary with the two dashes ahead.
  const bool dashed = cameraModel == "panasonic" && modelID == "BL-C210A";
  std::string line;
  while (nextLine(fd, kLineRoom, line)) {
    if (!holds(line, "Content-Type") && !holds(line, "Content-type")) continue;
    if (!holds(line, "multipart")) break;
    multipart.announced = true;
    multipart.boundary = multipartBoundary(line, dashed ? 2 : 0);
    LOG_DEBUG("Multipart data (%s)", line.c_str());
  }
  return line;
}

// AAC is recognised, its configuration read, and the stream refused.
void HTTPMediaProducerImpl::refuseAac(const std::string& contentType) {
  constexpr char kConfig[] = "config=";
  constexpr std::size_t kDigits = 4;
  const std::size_t at = contentType.find(kConfig);
  if (at == std::string::npos) FATAL_REPORT("No configuration data for AAC");
  const std::string digits = contentType.substr(at + sizeof kConfig - 1, kDigits);
  unsigned size = 0;
  const std::unique_ptr<unsigned char[]> config(parseGeneralConfigStr(digits.c_str(), size));
  LOG_DEBUG("AAC config: 0x%02x 0x%02x", size > 0 ? config[0] : 0, size > 1 ? config[1] : 0);
  FATAL_REPORT("AAC over HTTP is not yet implemented");
}

// False when nothing came any more. What came is delivered, also a short block.
bool HTTPMediaProducerImpl::receiveAudioBlock(int fd) {
  const ssize_t got = receiveAll(fd, aSink_->buffer, kBlockSize);
  if (got <= 0) return false;
  deliver(aSink_, static_cast<unsigned>(got));
  return true;
}

void HTTPMediaProducerImpl::receivePlainAudio(int fd) {
  auto* line = reinterpret_cast<char*>(aSink_->buffer);
  while (readline(fd, line, AbstractSink::kBufferSize) > 0 && !isBlankLine(line)) {
  }
  LOG_INFO("CRT-0000 Entering to loop to receive audio stream");
  while (!isStopped() && receiveAudioBlock(fd)) {
  }
}

// A part counts only when its blank line is the first thing that is read. Any
// other line, and so nearly always the first, begins fixed blocks that last as
// long as the connection; boundaries and part headers stay in the audio data.
void HTTPMediaProducerImpl::receiveMultipartAudio(int fd) {
  unsigned frameSize = 0;
  std::string line;
  while (!isStopped()) {
    if (!nextLine(fd, kLineRoom, line)) return;
    if (const auto length = headerNumber(line.c_str(), "Content-Length:")) {
      frameSize = static_cast<unsigned>(*length);
    }
    if (line == "\r\n" && frameSize != 0) {
      if (!receiveAudioPart(fd, frameSize)) return;
      frameSize = 0;
      continue;
    }
    while (!isStopped() && receiveAudioBlock(fd)) {
    }
  }
}

// A part that the connection cuts short keeps its stated length.
bool HTTPMediaProducerImpl::receiveAudioPart(int fd, unsigned size) {
  if (size > AbstractSink::kBufferSize) {
    FATAL_REPORT("CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE");
  }
  errno = 0;
  if (receiveAll(fd, aSink_->buffer, size) <= 0) {
    const auto reason = last_error_message();
    ERROR_REPORT("CRT-5002 Could not read from socket: %s", reason->c_str());
    return false;
  }
  deliver(aSink_, size);
  return true;
}

}  // namespace Kelvane
