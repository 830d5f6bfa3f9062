#include "TESTMediaProducerImpl.h"

#include <sys/time.h>

#include <cstdio>

#include "Exceptions.h"
#include "FailureReport.h"
#include "FramePacer.h"
#include "Retriever.h"

namespace Kelvane {

namespace {

// Reads the whole picture; at least one byte and fewer than the buffer holds.
unsigned readPicture(unsigned char* buffer) {
  FILE* file = fopen64("/tmp/test.jpg", "r");
  if (file == nullptr) {
    const auto reason = last_error_message();
    FATAL_REPORT("Could not open file /tmp/test.jpg: %s", reason->c_str());
  }
  errno = 0;  // an empty file sets none
  const std::size_t bytes = fread(buffer, 1, AbstractSink::kBufferSize, file);
  if (bytes == 0) {
    const auto reason = last_error_message();
    FATAL_REPORT("fread() fails: %s", reason->c_str());
  }
  if (bytes == AbstractSink::kBufferSize) FATAL_REPORT("frame may or not may be truncated");
  fclose(file);
  return static_cast<unsigned>(bytes);
}

}  // namespace

bool TESTMediaProducerImpl::start() {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  LOG_INFO("CRT-0000 Entering to loop to receive video stream");
  const unsigned size = readPicture(vSink_->buffer);
  FramePacer pacer;
  while (!retriever->isStopped()) {
    timeval tv{};
    gettimeofday(&tv, nullptr);
    vSink_->addData(vSink_->buffer, size, tv);
    const Delay_Interval wait = pacer.next(tv, retriever->framerate());
    if (wait != ZERO) delay(wait);
  }
  return true;
}

}  // namespace Kelvane
