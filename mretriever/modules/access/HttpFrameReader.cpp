// The video half of HTTPMediaProducerImpl: frames with text headers.
#include <sys/time.h>

#include <cstring>

#include "Cfg.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "FramePacer.h"
#include "HTTPMediaProducerImpl.h"
#include "HttpHeader.h"
#include "HttpStream.h"
#include "Retriever.h"

namespace Kelvane {

namespace {

// Of a JPEG, the bytes that no end marker is looked for in.
constexpr std::size_t kJpegHead = 624;

std::optional<int> frameLength(const char* line) {
  for (const char* name : {"Content-Length:", "Content-length:", "DataLen:"}) {
    if (const auto length = headerNumber(line, name)) return length;
  }
  return std::nullopt;
}

// The first word behind the header's name, cut to what `trigger` holds.
bool readTrigger(const char* line, char* trigger, std::size_t size) {
  const char* text = headerText(line, "Pragma:");
  if (text != nullptr) text = headerText(text, "trigger=");
  if (text == nullptr || *text == '\0') return false;
  std::size_t length = strcspn(text, " \t\n\v\f\r");
  if (length >= size) length = size - 1;
  memcpy(trigger, text, length);
  trigger[length] = '\0';
  return true;
}

}  // namespace

void HTTPMediaProducerImpl::receive_video(int sockfd) {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  LOG_INFO("CRT-0000 Entering to loop to receive video stream");
  const bool paced = !Cfg::exist("NO_FPS_LIMIT");
  FramePacer pacer;
  HttpStream stream(sockfd);
  while (!retriever->isStopped()) {
    const int length = read_frame(stream.get(), vSink_->buffer, AbstractSink::kBufferSize);
    if (length <= 0) break;
    timeval now{};
    gettimeofday(&now, nullptr);
    if (trigger_type[0] != '\0') vSink_->setTrigger(trigger_type.get());
    AbstractSink::afterGettingFrame(vSink_, static_cast<unsigned>(length), 0, now, 0);
    if (!paced) continue;
    const Delay_Interval wait = pacer.next(now, retriever->framerate());
    if (wait != ZERO) delay(wait);
  }
}

int HTTPMediaProducerImpl::read_frame(FILE* stream, std::uint8_t* buf, std::uint32_t size) {
  const int length = readFrameHeader(stream, reinterpret_cast<char*>(buf), static_cast<int>(size));
  if (!readFirstByte(stream, buf, length)) return -1;

  // A negative length is larger than any.
  const auto wanted = static_cast<std::uint32_t>(length);
  if (wanted != 0 && wanted <= size) return readBlock(stream, buf + 1, wanted - 1) ? length : -1;

  const std::string format = Cfg::value("MEDIA_FORMAT");
  if (format != "mjpg") {
    FATAL_REPORT("Parse jpeg. (Length unknown). But codec is %s", format.c_str());
  }
  if (!readBlock(stream, buf + 1, kJpegHead - 1)) return -1;
  return readJpegToEnd(stream, buf, kJpegHead, size, pictureLength_);
}

// Returns the frame's length, 0 when no line tells it. Two lines that matter
// are enough: what is left of the header then falls to the search for the
// frame's first byte.
int HTTPMediaProducerImpl::readFrameHeader(FILE* stream, char* line, int size) {
  memset(trigger_type.get(), 0, kTriggerSize);
  // Between frames: the rest of the line behind the frame, and the boundary.
  for (int discarded = 0; discarded < 2; ++discarded) {
    if (fgets_unlocked(line, size, stream) == nullptr) break;
  }
  int length = 0;
  int known = 0;
  while (fgets_unlocked(line, size, stream) != nullptr) {
    if (const auto number = frameLength(line)) {
      length = *number;
      ++known;
    } else if (readTrigger(line, trigger_type.get(), kTriggerSize)) {
      ++known;
    }
    if (known > 1 || isBlankLine(line)) break;
  }
  return length;
}

// JPEG begins with 0xFF, a start code with 0x00, and no header line holds
// either. False at the end of input.
bool HTTPMediaProducerImpl::readFirstByte(FILE* stream, std::uint8_t* buf, int length) {
  errno = 0;  // the end of input sets none
  int byte = 0;
  do {
    byte = getc_unlocked(stream);
  } while (byte != 0x00 && byte != 0xFF && byte != EOF);
  if (byte != EOF) {
    buf[0] = static_cast<std::uint8_t>(byte);
    return true;
  }
  const auto reason = last_error_message();
  if (cameraModel == "Pelco") {
    // Ends its streams in the ordinary course of things: no stream failure.
    LOG_WARN("CRT-5002 Could not read from socket: %s (Content-length=%d)", reason->c_str(),
             length);
  } else {
    ERROR_REPORT("CRT-5002 Could not read from socket: %s", reason->c_str());
  }
  return false;
}

}  // namespace Kelvane
