#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Video or audio that a camera sends as the body of one long HTTP GET. start()
// runs on the host's thread with blocking reads. A body that ends is asked for
// again on a new connection, at once and for ever; everything that goes wrong
// ahead of the body ends the process.
class HTTPMediaProducerImpl : public NETMediaProducerImpl {
 public:
  HTTPMediaProducerImpl(AbstractSink* audio, AbstractSink* video);
  ~HTTPMediaProducerImpl() override;

  // Returns at the stop flag, which is looked at between frames only.
  bool start() override;

  // One line into `buf`, a byte a read, so that nothing behind it is taken.
  // Stops behind the line feed or at `max` - 2 bytes; always terminates the
  // text. Returns its length, one more when the line feed is missing, 0 at the
  // end of input and -1 on an error.
  int readline(int fd, char* buf, int max);

  // The frames of an accepted response, until the stop flag or the stream's
  // end. The socket stays open.
  void receive_video(int sockfd);
  // One frame to the start of `buf`, which has AbstractSink::kSpareBytes behind
  // its `size` bytes and serves for the header lines too. The length, or -1
  // when the stream is to be given up. Fills trigger_type.
  int read_frame(FILE* stream, std::uint8_t* buf, std::uint32_t size);

  // The audio of an accepted response, from its headers on.
  void receive_audio(int sockfd);
  // The codec's RTP name for a Content-Type line, terminated when it is shorter
  // than `size`. An unknown type is a fatal report.
  void getRTPCodecStrFromHTTPContentType(const char* contentType, char* codec, unsigned int size);

 private:
  static constexpr std::size_t kTriggerSize = 65;

  std::string buildRequest();
  bool nextLine(int fd, int max, std::string& line);
  std::string readStatusLine(int fd);
  bool answerChallenge(int fd, std::string& line, std::string& request);
  void receive(int fd);

  int readFrameHeader(FILE* stream, char* line, int size);
  bool readFirstByte(FILE* stream, std::uint8_t* buf, int length);

  struct Multipart {
    bool announced = false;
    std::string boundary;  // never looked for: parts are found by their length
  };
  std::string readContentType(int fd, Multipart& multipart);
  void refuseAac(const std::string& contentType);
  bool receiveAudioBlock(int fd);
  bool receiveAudioPart(int fd, unsigned size);
  void receivePlainAudio(int fd);
  void receiveMultipartAudio(int fd);

  std::unique_ptr<char[]> trigger_type;  // of the current frame; empty for none
  std::size_t pictureLength_ = 0;        // of the last picture of unknown length
  std::string cameraModel;
  std::string modelID;
};

}  // namespace Kelvane
