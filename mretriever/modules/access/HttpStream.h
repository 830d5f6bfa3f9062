#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace Kelvane {

// Buffered reading from a device's socket for the HTTP and Bosch readers. The
// stream has a descriptor of its own, so that the socket stays the caller's to
// write to and to close. Without a free descriptor: a fatal report.
class HttpStream {
 public:
  explicit HttpStream(int socket);
  ~HttpStream();
  HttpStream(const HttpStream&) = delete;
  HttpStream& operator=(const HttpStream&) = delete;
  // What one read of the socket takes at the most, large parts of a frame aside.
  static constexpr std::size_t kBufferSize = 12000;
  FILE* get() { return file_; }

 private:
  FILE* file_;
  char buffer_[kBufferSize];
};

// Exactly `size` bytes. A short read is reported as CRT-5001 and gives false.
bool readBlock(FILE* stream, std::uint8_t* to, std::size_t size);

// The rest of a JPEG of unknown length, of which `begin` bytes stand in
// `frame`, which holds `size` bytes and a few to spare. Returns the picture's
// length, or -1 when the connection has ended, which is reported as CRT-5003.
// A picture that does not fit is a fatal report. `expected` is the length of the
// picture before, or 0: so much is read at once. Becomes this one's.
int readJpegToEnd(FILE* stream, std::uint8_t* frame, std::size_t begin, std::size_t size,
                  std::size_t& expected);

}  // namespace Kelvane
