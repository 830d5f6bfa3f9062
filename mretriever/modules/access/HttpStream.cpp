#include "HttpStream.h"

#include <fcntl.h>
#include <stdio_ext.h>

#include <algorithm>
#include <cerrno>

#include "Exceptions.h"
#include "FailureReport.h"
#include "JpegScan.h"
#include "SocketIo.h"

namespace Kelvane {

namespace {

constexpr std::size_t kRest = 16;  // of a picture, its last part of so many

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
// what came, -1 at a failure of the connection; 0 also when the stream reads
// from something else than a socket.
ssize_t readRestAtOnce(FILE* stream, std::uint8_t* to, std::size_t size) {
  const ssize_t got = receiveAll(fileno_unlocked(stream), to, size);
  return got < 0 && (errno == ENOTSOCK || errno == EBADF) ? 0 : got;
}

// All of it, or false with errno, which is 0 at the end of input.
bool readExactly(FILE* stream, std::uint8_t* to, std::size_t size) {
  errno = 0;
  std::size_t have = fread_unlocked(to, 1, std::min(size, readAhead(stream)), stream);
  if (size - have >= HttpStream::kBufferSize) {
    const ssize_t got = readRestAtOnce(stream, to + have, size - have);
    if (got < 0) return false;
    have += static_cast<std::size_t>(got);
    errno = 0;  // may tell that this is no socket
  }
  have += fread_unlocked(to + have, 1, size - have, stream);
  return have == size;
}

// Most of a picture comes past the stream's buffer too. It is only looked at
// until its end is known, as what follows the picture must stay in the socket;
// taken from there it is not copied again. False when there is no more of it,
// or no socket.
bool scanSocket(FILE* stream, std::uint8_t* frame, std::size_t upTo, JpegScan& scan) {
  const int socket = fileno_unlocked(stream);
  std::uint8_t* const to = frame + scan.stored();
  const ssize_t there = recv(socket, to, upTo - scan.stored(), MSG_PEEK);
  if (there <= 0) return false;
  const std::size_t taken = scan.take(to, static_cast<std::size_t>(there));
  return recv(socket, to, taken, MSG_TRUNC | MSG_WAITALL) == static_cast<ssize_t>(taken);
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
  if (readExactly(stream, to, size)) return true;
  const auto reason = last_error_message();
  ERROR_REPORT("CRT-5001 Error to read from socket: %s", reason->c_str());
  return false;
}

int readJpegToEnd(FILE* stream, std::uint8_t* frame, std::size_t begin, std::size_t size,
                  std::size_t& expected) {
  JpegScan scan(frame, begin, size);
  scanReadAhead(stream, scan);
  // The rest goes through the buffer, together with the next header.
  const std::size_t upTo = std::min(expected - expected / kRest, size);
  while (!scan.done() && scan.stored() < upTo && scanSocket(stream, frame, upTo, scan)) continue;
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
      expected = scan.length();
      return static_cast<int>(expected);
    case JpegScan::Result::closed:
      ERROR_REPORT("CRT-5003 Error to read from socket. Seems server closed connection");
      return -1;
    case JpegScan::Result::truncated:
      break;
  }
  FATAL_REPORT("CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE");
}

}  // namespace Kelvane
