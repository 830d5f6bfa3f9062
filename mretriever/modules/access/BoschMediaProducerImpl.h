#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Motion JPEG from a camera that answers each GET with one picture, over one
// connection that it keeps. start() runs on the host's thread with blocking
// reads and writes. A lost connection is made again at once; one that cannot be
// made ends the process. Status lines are not looked at: what a camera that
// refuses the request sends is taken for a picture.
class BoschMediaProducerImpl : public NETMediaProducerImpl {
 public:
  BoschMediaProducerImpl(AbstractSink* audio, AbstractSink* video);
  ~BoschMediaProducerImpl() override = default;

  // Returns at the stop flag, which is looked at between pictures only. An
  // absent key throws std::invalid_argument.
  bool start() override;

  // Asks for pictures at the retriever's frame rate, until the stop flag or the
  // connection's end. The socket stays open.
  void receive_mjpg(int sockfd);
  // One picture with its response header to the start of `buf`, which has
  // AbstractSink::kSpareBytes behind its `size` bytes. The length, or -1.
  int read_jpg(FILE* stream, std::uint8_t* buf, std::uint32_t size);

 private:
  std::string request;             // built once
  std::size_t pictureLength_ = 0;  // of the last picture of unknown length
};

}  // namespace Kelvane
