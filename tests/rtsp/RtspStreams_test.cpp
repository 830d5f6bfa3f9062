#include "RtspSupport.h"

using namespace testsupport;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string fmtp(const std::string& codec, const std::string& parameters) {
  return "m=video 0 RTP/AVP 96\r\na=rtpmap:96 " + codec + "/90000\r\na=fmtp:96 " + parameters +
         "\r\na=control:track1\r\n";
}

// Three RTP packets of one unit each over TCP.
void send(PeerConnection& connection, const std::string& unit) {
  for (int i = 1; i <= 3; ++i) {
    connection.write(interleaved(0, rtp(i, unit + std::to_string(i))));
  }
}
const std::string kSlice = hex("65 88 84");
const std::string kVop = hex("00 00 01 B6");

const char kThreeMedia[] =
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:track1\r\n"
    "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 MPEG4-GENERIC/48000/1\r\n"
    "a=fmtp:97 mode=AAC-hbr;config=1188;sizelength=13;indexlength=3;indexdeltalength=3\r\n"
    "a=control:track2\r\n"
    "m=metadata 0 RTP/AVP 98\r\na=rtpmap:98 METADATA/90000\r\na=control:track3\r\n";

}  // namespace

TEST(RtspStreams, TheFirstFrameIsTheCodecConfigurationOfTheDescription) {
  const std::string start = "00 00 00 01 ";
  const struct {
    const char *codec, *parameters, *model;
    std::string expected;  // empty: none ahead of the stream
  } cases[] = {
      // Base64 of 67 01, 68 02, 69 03 and of 00 00 00 01 67 04.
      {"H264", "sprop-parameter-sets=ZwE=,aAI=,aQM=,aQM=", "any",
       start + "67 01" + start + "68 02" + start + "69 03" + start + "69 03"},
      {"H264", "sprop-parameter-sets=AAAAAWcE,aAI=", "any", start + "67 04" + start + "68 02"},
      {"H264", "packetization-mode=1", "any", ""},
      {"MP4V-ES", "config=000001B0F5", "any", "00 00 01 B0 F5"},
      {"MP4V-ES", "profile-level-id=1", "any", ""},
      {"MP4V-ES", "config=XYZ", "any", ""},
      {"MP4V-ES", "config=000001B0F5", "ACTi", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.parameters) + c.model);
    const std::string unit = c.codec == std::string("H264") ? kSlice : kVop;
    CameraScript script;
    script.mediaLines = fmtp(c.codec, c.parameters);
    script.afterPlay = [&](PeerConnection& connection) { send(connection, unit); };
    ScriptedCamera camera(script);
    auto keys = camera.keys();
    keys["CAMERAMODEL"] = c.model;
    Receiver receiver(keys);
    const std::size_t ahead = c.expected.empty() ? 0 : 1;
    ASSERT_TRUE(receiver.host.video()->awaitFrames(ahead + 3));
    const auto frames = receiver.host.video()->data();
    if (ahead == 1) {
      EXPECT_EQ(frames[0], hex(c.expected));
    }
    EXPECT_EQ(frames[ahead], unit + "1") << "units come without start codes";
  }
}

// What stands between the frames of the connection is no reason to lose step.
TEST(RtspStreams, GarbageBetweenInterleavedFramesIsPassedOver) {
  CameraScript script;
  script.afterPlay = [](PeerConnection& connection) {
    connection.write(interleaved(0, rtp(1, hex("65 01"))));
    connection.write("garbage\r\n" + bytes({0, 255, 254}) + bytes({'$', 77}));
    connection.write(interleaved(0, ""));
    connection.write(interleaved(0, "short"));
    connection.write(interleaved(9, rtp(2, "of no stream")));
    connection.write(interleaved(1, "a report that no buffer holds" + std::string(9000, '!')));
    connection.write(interleaved(0, rtp(2, hex("65 02"))));
    connection.write(interleaved(0, rtp(3, hex("65 03"))));
  };
  ScriptedCamera camera(script);
  Receiver receiver(camera.keys());
  ASSERT_TRUE(receiver.host.video()->awaitFrames(3));
  EXPECT_EQ(receiver.host.video()->frames().back().data, hex("65 03"));
}

// The one sink of a medium plays the first stream, until that one ends.
TEST(RtspStreams, TwoVideoStreamsInOneDescription) {
  CameraScript script;
  script.mediaLines += "m=video 0 RTP/AVP 97\r\na=rtpmap:97 H264/90000\r\na=control:track2\r\n";
  script.afterPlay = [](PeerConnection& connection) {
    // A sender report makes the second stream's source known.
    connection.write(interleaved(3, hex("80 C8 00 06 00 00 00 05") + std::string(20, '\0')));
    connection.write(interleaved(3, rtcpBye(5)));
    send(connection, kSlice);
  };
  ScriptedCamera camera(script);
  testing::internal::CaptureStderr();
  Receiver receiver(camera.keys());
  ASSERT_TRUE(receiver.host.video()->awaitFrames(3));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Received RTCP \"BYE\""));
  EXPECT_THAT(camera.methods(), ElementsAre("DESCRIBE", "SETUP", "SETUP", "PLAY"));
  EXPECT_TRUE(receiver.stop());
}

TEST(RtspStreams, AudioAndMetadataReachTheirSinksWhereTheirKeysAreSet) {
  CameraScript script;
  script.mediaLines = kThreeMedia;
  script.afterPlay = [](PeerConnection& connection) {
    send(connection, kSlice);
    // One AU header of 16 bits: size 3, index 0.
    connection.write(interleaved(2, rtp(1, hex("00 10 00 18") + "aac", 97, 2)));
    connection.write(interleaved(4, rtp(1, "<object/>", 98, 3)));
  };
  ScriptedCamera camera(script);
  auto keys = camera.keys();
  {
    Receiver receiver(keys);
    ASSERT_TRUE(receiver.host.video()->awaitFrames(3));
    EXPECT_THAT(receiver.host.video()->codecs(), ElementsAre("H264"));
    EXPECT_THAT(receiver.host.audio()->codecs(), IsEmpty());
    EXPECT_THAT(receiver.host.initialised(), IsEmpty());
  }
  keys.insert({{"AUDIO", "on"}, {"VAE_ACTIVE", "yes"}, {"VAE_EDVA_ACTIVE", "yes"}});
  Receiver receiver(keys);
  ASSERT_TRUE(receiver.host.audio()->awaitFrames(1));
  EXPECT_THAT(receiver.host.audio()->codecs(), ElementsAre("MPEG4-GENERIC"));
  EXPECT_THAT(receiver.host.audio()->configs(), ElementsAre(hex("11 88")));
  EXPECT_EQ(receiver.host.audio()->frames()[0].data, "aac");
  // The host's metadata sink is of another class, so the producer made one.
  ASSERT_TRUE(eventually([&] { return !receiver.host.intake().empty(); }));
  EXPECT_EQ(receiver.host.intake()[0].data, "<object/>");
  EXPECT_EQ(receiver.host.initialised()[0].codec, "METADATA");
}

// A BYE ends its own stream; the last one ends the process. One of a source
// that has sent nothing does not count.
TEST(RtspStreams, ByeOnEveryStreamEndsTheProcessWithZero) {
  CameraScript script;
  script.mediaLines = kThreeMedia;
  script.afterPlay = [](PeerConnection& connection) {
    connection.write(interleaved(0, rtp(1, hex("65 01"))));
    connection.write(interleaved(2, rtp(1, hex("00 10 00 18") + "aac", 97, 2)));
    connection.write(interleaved(1, rtcpBye(9)));
    connection.write(interleaved(3, rtcpBye(2)));
    connection.write(interleaved(0, rtp(2, hex("65 02"))));
    connection.write(interleaved(1, rtcpBye(1)));
  };
  const auto receiveAll = [&] {
    ScriptedCamera camera(script);
    auto keys = camera.keys();
    keys["AUDIO"] = "on";
    TestHost host(keys);
    host.video()->onFrame([](const SinkFrame& frame) {
      fprintf(stderr, "video frame of %zu bytes\n", frame.data.size());
    });
    receive(host);
  };
  EXPECT_LEAVES(
      receiveAll(), 0,
      AllOf(testing::ContainsRegex("BYE\" on \"audio/MPEG4-GENERIC\" subsession \\(after [0-9]+ "
                                   "seconds\\)(.|\n)*video frame of 2 bytes(.|\n)*BYE\" on "
                                   "\"video/H264\" subsession"),
            testing::Not(HasSubstr("state "))));
}
