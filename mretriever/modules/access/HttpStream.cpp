#include "HttpStream.h"

#include <fcntl.h>
#include <stdio_ext.h>

#include "Exceptions.h"
#include "FailureReport.h"
#include "JpegScan.h"

namespace Kelvane {

namespace {

// What the stream has read ahead goes into the scan in place: the step of
// getc_unlocked(), for many bytes at once.
void scanReadAhead(FILE* stream, JpegScan& scan) {
  const auto ahead = static_cast<std::size_t>(stream->_IO_read_end - stream->_IO_read_ptr);
  stream->_IO_read_ptr +=
      scan.take(reinterpret_cast<const std::uint8_t*>(stream->_IO_read_ptr), ahead);
}

}  // namespace

HttpStream::HttpStream(int socket) {
  const int own = fcntl(socket, F_DUPFD_CLOEXEC, 0);
  file_ = own < 0 ? nullptr : fdopen(own, "r");
  if (file_ == nullptr) {
    const auto reason = last_error_message();
    FATAL_REPORT("CRT-5006 socket() error: %s", reason->c_str());
  }
  setvbuf(file_, buffer_, _IOFBF, sizeof buffer_);
  __fsetlocking(file_, FSETLOCKING_BYCALLER);
}

HttpStream::~HttpStream() {
  fclose(file_);
}

bool readBlock(FILE* stream, std::uint8_t* to, std::size_t size) {
  errno = 0;  // the end of input sets none
  if (fread_unlocked(to, 1, size, stream) == size) return true;
  const auto reason = last_error_message();
  ERROR_REPORT("CRT-5001 Error to read from socket: %s", reason->c_str());
  return false;
}

int readJpegToEnd(FILE* stream, std::uint8_t* frame, std::size_t begin, std::size_t size) {
  JpegScan scan(frame, begin, size);
  while (!scan.done()) {
    const int next = getc_unlocked(stream);  // refills the buffer
    if (next == EOF) {
      scan.endOfInput();
      break;
    }
    const auto byte = static_cast<std::uint8_t>(next);
    scan.take(&byte, 1);
    scanReadAhead(stream, scan);
  }
  switch (scan.result()) {
    case JpegScan::Result::complete:
      return static_cast<int>(scan.length());
    case JpegScan::Result::closed:
      ERROR_REPORT("CRT-5003 Error to read from socket. Seems server closed connection");
      return -1;
    case JpegScan::Result::truncated:
      break;
  }
  FATAL_REPORT("CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE");
}

}  // namespace Kelvane
