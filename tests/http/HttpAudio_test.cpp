#include <sys/socket.h>

#include <thread>

#include "HTTPMediaProducerImpl.h"
#include "HttpContentType.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using testing::ElementsAre;

namespace {

// A camera's side of a connected pair; what it sends is received on another thread.
class AudioCamera {
 public:
  explicit AudioCamera(int type, const TestHost::Keys& keys = {})
      : host(keys), producer(host.audio(), host.video()), ends_(type) {}
  ~AudioCamera() { finish(); }

  void receive() {
    thread_ = std::thread([this] { producer.receive_audio(ends_.near.get()); });
  }
  void send(const std::string& data) {
    EXPECT_EQ(::send(ends_.far.get(), data.data(), data.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(data.size()));
  }
  // For packets, where a read takes one byte of each: a line is so many packets.
  void sendLine(const std::string& line) {
    for (const char c : line) send(std::string(1, c));
  }
  // Ends the stream and waits for receive_audio().
  void finish() {
    ends_.far.reset();
    if (thread_.joinable()) thread_.join();
  }
  void run(const std::string& all) {
    receive();
    send(all);
    finish();
  }
  std::vector<std::string> blocks() { return host.audio()->data(); }

  TestHost host;
  Kelvane::HTTPMediaProducerImpl producer;

 private:
  SocketPair ends_;  // the far one is the camera's
  std::thread thread_;
};

void receiveText(const std::string& text) {
  AudioCamera camera(SOCK_STREAM);
  camera.run(text);
}

}  // namespace

TEST(HttpContentType, EachTypeHasItsCodec) {
  const struct {
    const char* line;
    const char* codec;
  } cases[] = {
      {"Content-Type: audio/basic\r\n", "PCMU"},
      {"Content-type: audio/PCMU;rate=8000\r\n", "PCMU"},
      {"Content-Type: audio/32KADPCM\r\n", "G726-32"},
      {"Content-Type: audio/g.726-32k\r\n", "G726-32"},
      {"Content-Type: audio/g726\r\n", "G726-32"},
      {"Content-Type: audio/G723\r\n", "G726-24"},
      {"Content-Type: audio/g.726-16k\r\n", "G726-16"},
      {"Content-Type: audio/mpeg4-generic; config=1210\r\n", "MPEG4-GENERIC"},
      {"Content-Type: audio/G723; was=audio/basic\r\n", "PCMU"},  // the earlier row
      {"Content-Type: audio/BASIC\r\n", nullptr},
      {"", nullptr},
  };
  for (const auto& c : cases) EXPECT_STREQ(Kelvane::audioCodec(c.line), c.codec) << c.line;
}

TEST(HttpAudio, FixedBlocksBehindTheHeader) {
  AudioCamera camera(SOCK_STREAM);
  const std::string first(240, 'a');
  camera.run("Server: x\r\ncontent-type: text/html\r\nContent-type: audio/G723\r\n" +
             std::string("X-Long: ") + std::string(3000, 'x') + "\r\nY: y\n\n" + first + "end");
  EXPECT_THAT(camera.host.audio()->codecs(), ElementsAre("G726-24"));
  EXPECT_THAT(camera.host.audio()->configs(), ElementsAre(""));
  EXPECT_THAT(camera.blocks(), ElementsAre(first, "end")) << "a short last block counts";
}

// The line reader takes the first line of the body and then no more: what looks
// like parts is passed on as it comes.
TEST(HttpAudio, PartsArePassedOnWithTheirHeaders) {
  AudioCamera camera(SOCK_STREAM, {{"CAMERAMODEL", "panasonic"}, {"MODELID", "BL-C210A"}});
  const std::string body = "Content-Length: 300\r\n\r\n" + std::string(300, 'p') + "\r\n--b\r\n";
  camera.run(
      "Content-Type: multipart/x-mixed-replace; boundary=--b\r\n\r\n--b\r\n"
      "Content-Type: audio/basic\r\n" +
      body);
  EXPECT_THAT(camera.host.audio()->codecs(), ElementsAre("PCMU"));
  const std::string behindLine = body.substr(body.find('\n') + 1);
  EXPECT_THAT(camera.blocks(), ElementsAre(behindLine.substr(0, 240), behindLine.substr(240)));
}

// Packets can end the fixed blocks without ending the stream: an empty one.
TEST(HttpAudio, APartOfKnownLengthComesWhole) {
  AudioCamera camera(SOCK_SEQPACKET);
  camera.receive();
  camera.sendLine(
      "Content-Type: multipart/mixed\r\nContent-Type: audio/PCMU\r\nContent-Length: 300\r\n");
  camera.send("block");
  camera.send("");
  camera.sendLine("\r\n");
  camera.send(std::string(300, 'p'));
  // A part that comes short keeps its stated length.
  camera.sendLine("Content-Length: 9\r\n");
  camera.send("");
  camera.sendLine("\r\n");
  camera.send("short");
  camera.sendLine("Content-Length: 9\r\n");
  camera.send("");
  camera.sendLine("\r\n");
  camera.finish();
  EXPECT_THAT(camera.blocks(),
              ElementsAre("block", std::string(300, 'p'), "short" + std::string(4, 'p')));
  EXPECT_THAT(camera.host.states(), ElementsAre("UNKNOWN UNK")) << "for the part that did not come";
}

TEST(HttpAudio, PartsThatDoNotFitEndTheProcess) {
  for (const char* length : {"1000001", "-1", "99999999999"}) {
    const auto part = [&] {
      AudioCamera camera(SOCK_SEQPACKET);
      camera.receive();
      camera.sendLine(
          "Content-Type: multipart/mixed\r\nContent-Type: audio/PCMU\r\nContent-Length: " +
          std::string(length) + "\r\n");
      camera.send("");
      camera.sendLine("\r\n");
      camera.finish();
    };
    SCOPED_TRACE(length);
    EXPECT_FATAL_REPORT(part(), "CRT-5005", "STREAM_LOST UNK");
  }
}

TEST(HttpAudio, RefusedTypes) {
  EXPECT_FATAL_REPORT(receiveText("Content-Type: audio/ogg\r\n\r\n"),
                      "Unknown Content-Type: Content-Type: audio/ogg", "STREAM_LOST UNK");
  EXPECT_FATAL_REPORT(receiveText("Server: last line\r\n"), "Unknown Content-Type: Server: last",
                      "STREAM_LOST UNK");
  EXPECT_FATAL_REPORT(receiveText(""), "Unknown Content-Type: ", "STREAM_LOST UNK");
  const std::string aac = "Content-Type: audio/mpeg4-generic";
  EXPECT_FATAL_REPORT(receiveText(aac + "\r\n"), "No configuration data for AAC",
                      "STREAM_LOST UNK");
  for (const char* config : {"; config=1210ff; x=y", "; config=", "; config=zz"}) {
    EXPECT_FATAL_REPORT(receiveText(aac + config + "\r\n"), "AAC over HTTP is not yet implemented",
                        "STREAM_LOST UNK");
  }
  EXPECT_FATAL_REPORT(receiveText(aac + "; config=1210\r\n"), "AAC config: 0x12 0x10",
                      "STREAM_LOST UNK");
}
