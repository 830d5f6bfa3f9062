#include "VSIPMediaProducerImpl.h"
#include "VSIPWire.h"
#include "VendorDevice.h"

using namespace testsupport;
using Kelvane::VSIPMediaProducerImpl;
using testing::ElementsAre;

namespace {

const std::string kVos = hex("000001B0F5");
const std::string kVop = hex("000001B6");

std::string packet(unsigned number, const std::string& payload, int length = -1) {
  const auto size = length < 0 ? payload.size() + 6 : static_cast<std::size_t>(length);
  return bytes({static_cast<int>(number >> 8), static_cast<int>(number & 0xFF),
                static_cast<int>(size >> 8), static_cast<int>(size & 0xFF), 9, 9}) +
         payload;
}

// Stream port and page on ports of their own.
struct Device {
  TcpPeer streams{"127.0.0.1", 0};
  TcpPeer pages{"127.0.0.1", 0};
  PeerConnection stream{-1};
  std::string request, page;

  TestHost::Keys keys(TestHost::Keys keys = {}) const {
    keys.insert({{"DEVIP", "127.0.0.1"},
                 {"VSIP_PORT", std::to_string(streams.port())},
                 {"HTTP_PORT", std::to_string(pages.port())},
                 {"DEFINEDUID", std::string(66, '7')},
                 {"VSIP_TARGET_SIP", "10.0.0.9"},
                 {"VSIP_SOURCE_GUID", "{source}"},
                 {"VSIP_TARGET_GUID", "%7Btarget%7D"},
                 {"USRNAME", "user"},
                 {"PASSWD", "pass"},
                 {"MEDIA_FORMAT", "mpeg4"},
                 {"FRAMERATE", "25"}});
    return keys;
  }
  static std::string last() { return packet(0, "last packet"); }
  bool keepAlive() {
    PeerConnection connection = pages.accept();
    page = connection.readUntil("\r\n\r\n");
    return connection.write("HTTP/1.0 500 Whatever\r\n\r\n");
  }
  bool open() {
    if (!keepAlive()) return false;
    stream = streams.accept();
    request = stream.read(40);
    return stream.write(std::string(24, 'r'));
  }
};

using Session = VendorSession<VSIPMediaProducerImpl, Device>;

}  // namespace

TEST(Vsip, ConversationIsByteForByte) {
  VSIPMediaProducerImpl::keepAliveQuarters = 1;
  Session session({{"MEDIA_FORMAT", "mjpg"}, {"DEFINEDUID", std::string(66, '7') + "99"}});
  ASSERT_TRUE(session.opened);
  EXPECT_EQ(session.device.request, hex("01001300010028") + std::string(33, 'w'));
  EXPECT_EQ(session.device.page,
            "GET /FramesetRightCommand.asp?command=KeepAlive&TargetGuid=%7Btarget%7D"
            "&TargetIp=10.0.0.9&TargetPort=0&SourceGuid={source}&TargetAudioIp=10.0.0.9"
            "TargetAudioPort=0&FakeParam=2 HTTP/1.0\r\nHost: 127.0.0.1\r\n"
            "Authorization: Basic dXNlcjpwYXNz\r\n\r\n");
  EXPECT_TRUE(session.device.keepAlive()) << "no second keep-alive";
  EXPECT_THAT(session.device.page, testing::HasSubstr("&FakeParam=3 HTTP/1.0"));
  EXPECT_THAT(session.host.states(), ElementsAre());
}

TEST(Vsip, TheNumberGoesIntoATemplateThatMayHoldAnything) {
  using Kelvane::vsip::keepAliveRequest;
  EXPECT_EQ(keepAliveRequest("a%sb%nc%%d%7Be&FakeParam=%d%", 17), "a%sb%nc%d%7Be&FakeParam=17%");
  // No user: no header line, and the blank line follows the host.
  EXPECT_THAT(Kelvane::vsip::keepAliveTemplate({"t", "i", "s", "h", ""}),
              testing::EndsWith("Host: h\r\n\r\n"));
}

TEST(Vsip, JpegFramesEndWhereTheNumbersBeginAgain) {
  Session session({{"MEDIA_FORMAT", "mjpg"}, {"FRAMERATE", "10"}});
  ASSERT_TRUE(session.opened);
  const std::string zeros(3, '\0');
  session.sends(packet(7, "mid") + packet(0, "ab") + packet(1, "cd" + zeros) + packet(0, "e") +
                packet(0, "f") + packet(0, "g"));
  ASSERT_TRUE(session.video().awaitFrames(4));
  EXPECT_THAT(session.video().data(), ElementsAre("mid", "abcd" + zeros, "e", "f"));
  const auto frames = session.video().frames();
  EXPECT_GE(Kelvane::Time_Val(frames[3].tv) - Kelvane::Time_Val(frames[0].tv),
            Kelvane::Delay_Interval(0, 190000))
      << "a burst was not held to 10 a second";
}

TEST(Vsip, Mpeg4BeginsAtTheStreamHeaders) {
  Session session;
  ASSERT_TRUE(session.opened);
  session.sends(packet(0, "dropped") + packet(0, kVop + "dropped too") +
                packet(5, kVos + kVop + "one") + packet(5, "more") + packet(5, kVop + "two") +
                packet(5, "x") + packet(0, kVop + "three"));
  ASSERT_TRUE(session.video().awaitFrames(3));
  EXPECT_THAT(session.video().data(), ElementsAre(kVos, kVop + "onemore", kVop + "twox"));
}

// A payload of two bytes is told by what follows it on the wire.
TEST(Vsip, TheLookAheadReachesIntoTheNextHeader) {
  Session session;
  ASSERT_TRUE(session.opened);
  const std::string two(2, '\0');
  session.sends(packet(5, kVos + kVop + "a") + packet(5, two) + packet(0x0101, "b") +
                packet(0, kVop));
  ASSERT_TRUE(session.video().awaitFrames(3));
  EXPECT_THAT(session.video().data(), ElementsAre(kVos, kVop + "a", two + "b"));
}

// Found in bytes that an older packet left, behind this packet's end: the rest
// wraps to nearly 64 KB, and the move stays inside the buffer.
TEST(Vsip, APictureInOlderBytesCounts) {
  Session session;
  ASSERT_TRUE(session.opened);
  const std::string older(60000, 'o');
  session.sends(packet(0, older + kVop + "tail") + packet(0, kVos) + packet(0, kVop));
  ASSERT_TRUE(session.video().awaitFrames(2));
  const auto frames = session.video().data();
  EXPECT_EQ(frames[0], kVos + older.substr(kVos.size()));
  EXPECT_EQ(frames[1].size(), 65536U + kVos.size() - older.size());
  EXPECT_EQ(frames[1].substr(0, 8), kVop + "tail");
}

TEST(Vsip, RefusedKeysEndTheProcess) {
  const struct {
    const char* key;
    std::string value;
    const char* text;
  } cases[] = {
      {"DEFINEDUID", std::string(64, '7'), "CRT-5050 Failed to parse UID. Size (32) incorrect"},
      {"DEFINEDUID", "no hex", "CRT-5050 Failed to parse UID. Size (0) incorrect"},
      {"MEDIA_FORMAT", "h264", "CRT-5013 h264 is not currently supported"},
      {"HTTP_PORT", "1", "CRT-5009 Unable to connect() to 127.0.0.1"},
  };
  for (const auto& c : cases) {
    const auto play = [](Device& device) { device.open(); };
    EXPECT_FATAL_EXIT(Session::startAgainst(play, {{c.key, c.value}}), c.text);
  }
}

TEST(Vsip, DeviceFailuresEndTheProcess) {
  const std::string lost = "CRT-5051 Failed read from socket: ";
  std::string full = packet(0, kVos + kVop + std::string(50000, 'f'));
  for (int i = 0; i < 18; ++i) full += packet(1, std::string(50000, 'n'));
  full += packet(1, std::string(50000 - 4, 'n'));  // a million, the headers being gone
  const struct {
    const char* what;
    Session::Play play;
    std::string text;
  } cases[] = {
      {"request not answered",
       [](Device& d) {
         d.keepAlive();
         d.streams.accept().read(40);
       },
       lost},
      {"page closes without an answer",
       [](Device& d) {
         d.pages.accept().readUntil("\r\n\r\n");
         d.stream = d.streams.accept();
         d.stream.awaitClose();
       },
       "CRT-5010 Failed read from socket: "},
      {"stream closed", Session::sending(""), lost},
      {"empty payload", Session::sending(packet(0, "") + packet(0, "abcd")), lost},
      {"headers without a picture", Session::sending(packet(0, kVos + "nothing")),
       "CRT-5058 Incorrect header"},
      {"one byte too many", Session::sending(full + packet(1, "!") + "????"),
       "CRT-5005 Frame has been truncated. Please increase SINK_BUFFER_SIZE"},
      {"wrapped length", Session::sending(full + packet(1, "", 5) + "????"), "CRT-5005"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_FATAL_EXIT(Session::startAgainst(c.play), c.text);
  }
  EXPECT_FATAL_EXIT(Session::startAgainst(Session::sending(full + packet(1, std::string(20, '!'))),
                                          {{"MEDIA_FORMAT", "mjpg"}}),
                    "CRT-5005");
}

TEST(Vsip, ASilentPageDoesNotHoldUpTheEnd) {
  Device device;
  TestHost host(device.keys());
  PeerConnection page(-1);
  {
    VSIPMediaProducerImpl producer(host.audio(), host.video());
    page = device.pages.accept();
    ASSERT_NE(page.readUntil("\r\n\r\n"), "");
  }
  EXPECT_TRUE(page.awaitClose());
}
