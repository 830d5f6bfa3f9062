#include "DanteMediaProducerImpl.h"
#include "DanteWire.h"
#include "VendorDevice.h"

using namespace testsupport;
using Kelvane::DanteMediaProducerImpl;
using testing::ElementsAre;

namespace {

const std::string kHeaders = hex("000001B0F5000001B50900000100");
const std::string kIHead = hex("01010000");
const std::string kPHead = hex("B6010000");

std::string words(std::initializer_list<unsigned> values) {
  std::string data;
  for (const unsigned value : values) data += le(value, 4);
  return data;
}

std::string video(const std::string& data, unsigned width = 0, unsigned height = 0) {
  const auto size = static_cast<unsigned>(data.size());
  return words({24 + size, 0x102, 0, width, height, size}) + data;
}

struct Encoder {
  TcpPeer configurations{ownLoopbackAddress(), 2003};
  TcpPeer streams{ownLoopbackAddress(), 2002};
  // Header with sizes of its own and parameters that must come back.
  std::string header = words({777, 0x31A, 1, 8, 9, 555});
  std::string parameters;
  std::string request, written, login;
  PeerConnection stream{-1};

  static TestHost::Keys keys(TestHost::Keys keys = {}) {
    keys.insert({{"DEVIP", ownLoopbackAddress()},
                 {"USRNAME", "root"},
                 {"PASSWD", "pw"},
                 {"MEDIA_FORMAT", "mpeg4"},
                 {"IMAGESIZE", "fullsize"},
                 {"RC_MODE", "cbr"},
                 {"RC_MAXBITRATE", "1000"},
                 {"CAMCOMPRESSION", "3"},
                 {"FRAMERATE", "25"},
                 {"CAMERA", "2"}});
    return keys;
  }
  static std::string last() { return words({24, 0x101, 0, 0, 0, 4}) + "last"; }
  Encoder() {
    for (int i = 0; i < 216; ++i) parameters.push_back(static_cast<char>(i + 1));
    parameters[0] = 2;
  }
  bool configure() {
    PeerConnection reading = configurations.accept();
    request = reading.read(24);
    reading.write(header + parameters);
    if (!reading.awaitClose()) return false;
    PeerConnection writing = configurations.accept();
    written = writing.read(240);
    writing.write("x");  // any byte will do
    return written.size() == 240;
  }
  bool open() {
    if (!configure()) return false;
    stream = streams.accept();
    login = stream.read(118);
    return login.size() == 118;
  }
};

using Session = VendorSession<DanteMediaProducerImpl, Encoder>;

}  // namespace

TEST(Dante, ConversationIsByteForByte) {
  Session session;
  ASSERT_TRUE(session.opened);
  Encoder& encoder = session.device;
  EXPECT_EQ(encoder.request, words({24, 0x31A, 1, 0, 0, 0}));
  // The sizes of the device's own header go back as they came.
  EXPECT_EQ(encoder.written.substr(0, 24), words({777, 0x31C, 1, 8, 9, 555}));
  std::string wanted = encoder.parameters;
  wanted.replace(1, 2, hex("22 00"));
  wanted.replace(4, 7, hex("E8030000 02 19 32"));
  EXPECT_EQ(encoder.written.substr(24), wanted);
  EXPECT_EQ(encoder.login, words({94, 0x340, 0, 4, 2, 70}) + words({1}) + std::string(28, '\xFF') +
                               std::string(32, '\0') + "rootpw" + words({24, 0x3A5, 0, 0, 0, 0}));
  EXPECT_EQ(Kelvane::dante::loginRequest(0, "", "").size(), 112U);
}

TEST(Dante, ParametersAreClamped) {
  using Kelvane::dante::tagVENCODERPARAMSEX;
  const struct {
    unsigned bitrate, wantedBitrate;
    int compression, quality, rate, fps, interval;
  } cases[] = {
      {59, 500, 0, 4, 3, 25, 50},       {60, 60, 1, 0, 4, 25, 50},
      {5000, 5000, 5, 4, 5, 5, 10},     {5001, 5000, 6, 4, 30, 30, 60},
      {0, 500, 2, 1, 35, 35, 70},       {-5U, 5000, -7, 4, 36, 25, 72},
      {500, 500, 258, 1, 100, 25, 200}, {500, 500, 3, 2, 101, 25, 50},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bitrate);
    tagVENCODERPARAMSEX parameters;
    Kelvane::dante::apply({"", false, c.bitrate, c.compression, c.rate}, parameters);
    const auto& bytes = parameters.bytes;
    EXPECT_EQ(bytes[4] | bytes[5] << 8, static_cast<int>(c.wantedBitrate));
    EXPECT_EQ(bytes[8], c.quality);
    EXPECT_EQ(bytes[9], c.fps);
    EXPECT_EQ(bytes[10], c.interval);
  }
  const struct {
    const char* name;
    int standard, size;
  } sizes[] = {{"hugesize", 2, 0x28}, {"hugesize", 1, 0x48}, {"fullsize", 2, 0x22},
               {"fullsize", 0, 0x42}, {"HUGESIZE", 2, 0x20}, {"", 3, 0x40}};
  for (const auto& c : sizes) {
    tagVENCODERPARAMSEX parameters;
    parameters.bytes[0] = static_cast<std::uint8_t>(c.standard);
    Kelvane::dante::apply({c.name, true, 60, 1, 25}, parameters);
    EXPECT_EQ(parameters.bytes[1], c.size) << c.name << " " << c.standard;
  }
}

TEST(Dante, NothingComesBeforeTheFirstIframeAndThenEveryWordIsTurned) {
  const TestHost::Keys changed{{"RC_MAXBITRATE", "unlimited"}};
  Session session(changed);
  ASSERT_TRUE(session.opened);
  EXPECT_EQ(session.device.written.substr(28, 4), words({500}));
  const std::string motion(200, 'm');
  const std::string audio = words({28, 0x101, 0, 0, 0, 4}) + "SNDS";
  const std::string second = words({24, 0x999, 0, 0, 0, 0});
  session.sends(video(kPHead + "early!!!", 704, 480) + motion +              //
                video(kIHead + "dcbahgfelast", 704, 572) + motion + audio +  //
                video(kPHead + "lkjilast", 704, 576) +                       //
                video(kPHead + "last", 352, 288) + std::string(52, 'm') +    //
                video(kPHead) + video(kIHead) +                              //
                video("").substr(0, 20) + le(12, 4) + second + "dropdropdrop" + kPHead +
                "tsrqlast" + video(kIHead + "last"));
  ASSERT_TRUE(session.video().awaitFrames(8));
  const std::string i = hex("00000101");
  const std::string p = hex("000001B6");
  EXPECT_THAT(session.video().data(), ElementsAre(kHeaders, kHeaders + i + "abcdefgh", p + "ijkl",
                                                  p, "", kHeaders, p + "qrst", kHeaders + i));
}

TEST(Dante, FailuresAreReported) {
  const std::string lost = "CRT-5051 Failed read from socket: ";
  const std::string closed = "STREAM_LOST DEV_CLOSED_SOCKET";
  const std::string unknown = "STREAM_LOST UNK";
  const struct {
    const char* what;
    Session::Play device;
    std::string text;
    std::string state;
  } cases[] = {
      {"read request not answered", [](Encoder& e) { e.configurations.accept().read(24); },
       "CRT-5010 Failed read from socket: ", closed},
      {"parameters not answered",
       [](Encoder& e) {
         PeerConnection reading = e.configurations.accept();
         reading.write(e.header + e.parameters);
         reading.awaitClose();
         e.configurations.accept().read(240);
       },
       "CRT-5010 Failed to read from socket: ", unknown},
      {"stream closed", Session::sending(""), lost, closed},
      {"stream closed behind a header", Session::sending(video("abcd").substr(0, 24)), lost,
       closed},
      {"a frame of no bytes", Session::sending(video("") + kIHead), lost, closed},
      {"unknown type", Session::sending(words({24, 0x103, 2, 3, 4, 0xABCDEF01})),
       "Unknown packet type (0x00000018 0x00000103 0x00000002 0x00000003 0x00000004 0xabcdef01)",
       unknown},
      {"odd size", Session::sending(video(kPHead + "ab")), "Unaligned data", unknown},
      {"gigabytes", Session::sending(words({0, 0x102, 0, 0, 0, 0xFFFFFFFC}) + kIHead + "data"),
       "CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE", unknown},
      {"one word too many", Session::sending(video(kIHead + std::string(1000000 - 14 + 2, 'x'))),
       "CRT-5005", unknown},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_FATAL_REPORT(Session::startAgainst(c.device), c.text, c.state);
  }
  // Said only once the login is out.
  EXPECT_FATAL_REPORT(Session::startAgainst(Session::sending(""), {{"MEDIA_FORMAT", "mjpg"}}),
                      "CRT-5013 mjpg is not currently supported", unknown);
  TestHost host(Encoder::keys());
  DanteMediaProducerImpl lonely(host.audio(), host.video());
  EXPECT_FATAL_REPORT(lonely.start(), "CRT-5009 Unable to connect() to 127.",
                      "STREAM_LOST NET_FAILURE");
}

// The largest frame that fits reaches the last byte of the buffer.
TEST(Dante, AFrameMayFillTheBuffer) {
  Session session;
  ASSERT_TRUE(session.opened);
  session.sends(video(kIHead + "last") + video(kPHead + std::string(1000000, 'x')));
  ASSERT_TRUE(session.video().awaitFrames(3));
  EXPECT_EQ(session.video().frames()[2].data, hex("000001B6") + std::string(1000000 - 4, 'x'));
}
