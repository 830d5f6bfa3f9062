#include "HttpStream.h"

#include <fcntl.h>
#include <stdio_ext.h>

#include <algorithm>

#include "Exceptions.h"
#include "FailureReport.h"
#include "JpegScan.h"
#include "SocketIo.h"

namespace Kelvane {

namespace {

// What the stream has read ahead lies between its two pointers: the step of
// getc_unlocked(), for many bytes at once.
std::size_t readAhead(const FILE* stream) {
  return static_cast<std::size_t>(stream->_IO_read_end - stream->_IO_read_ptr);
}

void scanReadAhead(FILE* stream, JpegScan& scan) {
  stream->_IO_read_ptr +=
      scan.take(reinterpret_cast<const std::uint8_t*>(stream->_IO_read_ptr), readAhead(stream));
}

// Large rests of a frame come past the stream's buffer, in one call. Returns
// what came; 0 also when the stream reads from something else than a socket.
std::size_t readRestAtOnce(FILE* stream, std::uint8_t* to, std::size_t size) {
  const ssize_t got = receiveAll(fileno_unlocked(stream), to, size);
  return got > 0 ? static_cast<std::size_t>(got) : 0;
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
  std::size_t have = std::min(size, readAhead(stream));
  have = fread_unlocked(to, 1, have, stream);
  if (size - have >= HttpStream::kLargeRest) have += readRestAtOnce(stream, to + have, size - have);
  errno = 0;  // the end of input sets none
  have += fread_unlocked(to + have, 1, size - have, stream);
  if (have == size) return true;
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
