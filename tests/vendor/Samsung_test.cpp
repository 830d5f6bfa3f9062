#include "SamsungMediaProducerImpl.h"
#include "SamsungWire.h"
#include "VendorDevice.h"

using namespace testsupport;
using Kelvane::SamsungMediaProducerImpl;
using testing::ElementsAre;

namespace {

const char* const kConnected = "53445652 00100C00 11710000 14000001";
const char* const kConfigured = "53445652 00100C00 11510001 0A000100";
const char* const kRequest = "53445652 00000C00 10730001";
const char* const kKeepAlive = "53445652 00100C00 197D0001 04000000";
const char* const kStreamRequest = "53445652 00FC0C00 30118001";
const std::string kVos = hex("000001B0F5000001B509");
const std::string kIFrame = hex("000001B6 10 AA BB");
const std::string kPFrame = hex("000001B6 50 CC");

// `dataSize` other than the packet's own is a lie.
std::string packetOf(bool first, const std::string& payload, int dataSize = -1) {
  const std::size_t size = 12 + (first ? 72 : 0) + payload.size();
  return "SDVR" + hex("0000") + le(dataSize < 0 ? static_cast<unsigned>(size) : dataSize, 2) +
         hex(first ? "0000 8001" : "0000 8000") + std::string(first ? 72 : 0, 'h') + payload;
}
std::string first(const std::string& payload) {
  return packetOf(true, payload);
}
std::string next(const std::string& payload) {
  return packetOf(false, payload);
}

struct Dvr {
  TcpPeer controls{ownLoopbackAddress(), 4000};
  TcpPeer streams{ownLoopbackAddress(), 4001};
  PeerConnection control{-1};
  PeerConnection stream{-1};
  std::string conn, conf, req;

  static TestHost::Keys keys(TestHost::Keys keys = {}) {
    keys.insert({{"DEVIP", ownLoopbackAddress()},
                 {"USRNAME", "admin"},
                 {"PASSWD", "1234"},
                 {"MEDIA_FORMAT", "mpeg4"},
                 {"IMAGESIZE", "fullsize"},
                 {"FRAMERATE", "25"},
                 {"CAMCOMPRESSION", "3"}});
    return keys;
  }
  static std::string last() { return first("end"); }
  bool configure() {
    control = controls.accept();
    conn = control.read(32);
    control.write(std::string(16, 'a'));
    conf = control.read(22);
    control.write(std::string(16, 'b'));
    req = control.read(12);
    return control.write(std::string(298, 'c'));
  }
  bool answerKeepAlive() {
    return control.read(16) == hex(kKeepAlive) && control.write(std::string(16, 'k'));
  }
  bool acceptStream() {
    stream = streams.accept();
    return stream.read(12) == hex(kStreamRequest);
  }
  bool open() { return configure() && answerKeepAlive() && acceptStream(); }
};

using Session = VendorSession<SamsungMediaProducerImpl, Dvr>;

}  // namespace

TEST(Samsung, ConversationIsByteForByte) {
  Session session;
  ASSERT_TRUE(session.opened);
  EXPECT_EQ(session.device.conn, hex(kConnected) + std::string("1234\0\0\0\0admin\0\0\0", 16));
  EXPECT_EQ(session.device.conf, hex(kConfigured) + hex("01 02 19 03 0000"));
  EXPECT_EQ(session.device.req, hex(kRequest));
  EXPECT_TRUE(session.device.answerKeepAlive()) << "no second keep-alive";

  session.sends(first("abc") + next("de") + first("f"));
  ASSERT_TRUE(session.video().awaitFrames(1));
  EXPECT_EQ(session.video().frames()[0].data, "abcde");
  EXPECT_THAT(session.video().codecs(), ElementsAre());
  EXPECT_THAT(session.host.states(), ElementsAre());
}

TEST(Samsung, ValuesOutOfRangeGoOutAsDefaults) {
  const struct {
    int value;
    int rate;
    int compression;
  } cases[] = {{-1, 1, 2}, {0, 1, 0},   {1, 1, 1},  {2, 2, 2},  {4, 4, 4},
               {5, 5, 2},  {30, 30, 2}, {31, 1, 2}, {256, 1, 2}};
  for (const auto& c : cases) {
    EXPECT_EQ(Kelvane::samsung::frameRate(c.value), c.rate) << c.value;
    EXPECT_EQ(Kelvane::samsung::compression(c.value), c.compression) << c.value;
  }
  EXPECT_EQ(Kelvane::samsung::imageSize("halfsize"), 1);
  EXPECT_EQ(Kelvane::samsung::imageSize("HUGESIZE"), 0);
  // Full fields have no terminator.
  const auto login = Kelvane::samsung::connectRequest("12345678", "abcdefgh");
  EXPECT_EQ(std::string(login.begin() + 16, login.end()), "abcdefgh12345678");
}

TEST(Samsung, Mpeg4FramesAreTrimmedAndIntraFramesGetHeaders) {
  Session session;
  ASSERT_TRUE(session.opened);
  const std::string zeros(3, '\0');
  const std::string both = kPFrame + kIFrame;
  session.sends(next("joined in mid-frame") + first(kPFrame + zeros) + first(kIFrame) +
                first(both) + first(zeros) + first(hex("000001B6")) + first("x"));
  ASSERT_TRUE(session.video().awaitFrames(6));
  EXPECT_THAT(session.video().data(), ElementsAre("joined in mid-frame", kPFrame, kVos + kIFrame,
                                                  kVos + both, "", hex("000001B6")));
}

TEST(Samsung, JpegFramesArePacedAndStayAsTheyAre) {
  Session session({{"MEDIA_FORMAT", "mjpg"}, {"FRAMERATE", "10"}, {"IMAGESIZE", "HUGESIZE"}});
  ASSERT_TRUE(session.opened);
  EXPECT_EQ(session.device.conf.substr(16), hex("02 00 0A 03 0000"));
  std::string burst;
  for (int i = 0; i < 5; ++i) burst += first(kIFrame);
  session.sends(burst);
  ASSERT_TRUE(session.video().awaitFrames(4));
  const auto frames = session.video().frames();
  EXPECT_EQ(frames[0].data, kIFrame);
  const Kelvane::Delay_Interval took =
      Kelvane::Time_Val(frames[3].tv) - Kelvane::Time_Val(frames[0].tv);
  EXPECT_GE(took, Kelvane::Delay_Interval(0, 190000)) << "a burst was not held to 10 a second";
}

// In the buffer's spare bytes: the headers in front of a frame that fills it.
TEST(Samsung, AFrameMayFillTheBufferAndStillGetHeaders) {
  Session session;
  ASSERT_TRUE(session.opened);
  const std::size_t whole = 1000000;
  std::string frame = kIFrame;
  frame.resize(whole, 'v');
  std::string packets = first(frame.substr(0, 60000));
  for (std::size_t at = 60000; at < whole; at += 50000) packets += next(frame.substr(at, 50000));
  session.sends(packets + first("x"));
  ASSERT_TRUE(session.video().awaitFrames(1));
  EXPECT_EQ(session.video().frames()[0].data, kVos + frame);
}

TEST(Samsung, ASilentControlConnectionDoesNotHoldUpTheEnd) {
  Dvr dvr;
  TestHost host(Dvr::keys());
  const auto begin = std::chrono::steady_clock::now();
  {
    SamsungMediaProducerImpl producer(host.audio(), host.video());
    host.run(producer);
    ASSERT_TRUE(dvr.configure());
    ASSERT_EQ(dvr.control.read(16), hex(kKeepAlive));
    dvr.control.write("half");
    ASSERT_TRUE(dvr.acceptStream());
    host.stop();
    dvr.stream.write(first("x"));
    ASSERT_TRUE(host.awaitEnd());
    EXPECT_TRUE(host.result());
  }
  EXPECT_TRUE(dvr.control.awaitClose());
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kPatience);
}

TEST(Samsung, RefusedKeysEndTheProcess) {
  const struct {
    TestHost::Keys changed;
    const char* text;
  } cases[] = {
      {{{"USRNAME", ""}}, "Incorrect USRNAME length: 0"},
      {{{"USRNAME", "123456789"}}, "Incorrect USRNAME length: 9"},
      {{{"PASSWD", "123456789"}}, "PASSWD length (9) too big"},
      {{{"MEDIA_FORMAT", "h264"}}, "CRT-5013 h264 is not currently supported"},
  };
  for (const auto& c : cases) {
    const auto play = [](Dvr& dvr) { dvr.configure(); };
    EXPECT_FATAL_EXIT(Session::startAgainst(play, c.changed), c.text);
  }
  TestHost host(Dvr::keys());
  SamsungMediaProducerImpl lonely(host.audio(), host.video());
  EXPECT_FATAL_EXIT(lonely.start(), "CRT-5009 Unable to connect() to 127.");
}

TEST(Samsung, DeviceFailuresEndTheProcess) {
  const std::string lost = "CRT-5010 Failed read from socket: ";
  std::string tooLong = first(std::string(50000, 'f'));
  for (int i = 0; i < 19; ++i) tooLong += next(std::string(50000, 'n'));
  const struct {
    const char* what;
    Session::Play device;
    std::string text;
  } cases[] = {
      {"login refused", [](Dvr& dvr) { dvr.controls.accept().read(32); }, lost},
      {"keep-alive refused",
       [](Dvr& dvr) {
         dvr.configure();
         dvr.control.read(16);
         dvr.control.close();
         dvr.acceptStream();
         dvr.stream.awaitClose();
       },
       lost},
      {"stream closed", Session::sending(""), lost},
      {"wrong magic", Session::sending("SDVQ" + std::string(8, '\0')), "Incorrect Samsung header"},
      {"empty payload", Session::sending(first("")), lost},
      {"one byte too many", Session::sending(tooLong + next("!")),
       "CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE"},
      {"length below the header wraps beyond the buffer",
       Session::sending(tooLong + packetOf(false, "", 11)), "CRT-5005"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_FATAL_EXIT(Session::startAgainst(c.device), c.text);
  }
}

// Less than its headers: the length wraps to nearly 64 KB, which are read.
TEST(Samsung, AWrappedLengthIsReadAsItStands) {
  Session session;
  ASSERT_TRUE(session.opened);
  const std::string payload(65535, 'w');
  session.sends(packetOf(true, payload, 83) + first("x"));
  ASSERT_TRUE(session.video().awaitFrames(1));
  EXPECT_EQ(session.video().frames()[0].data, payload);
}
