// Against whole servers: the simulated camera, and one of other making.
#include "RtspSupport.h"

using namespace testsupport;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

double secondsOf(const timeval& tv) {
  return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6;
}

double now() {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  return secondsOf(tv);
}

}  // namespace

TEST(RtspCamera, VideoAudioAndMetadataArrive) {
  const struct {
    const char *video, *audio, *overTcp, *videoCodec, *audioCodec;
  } cases[] = {{"h264", "aac", "on", "H264", "MPEG4-GENERIC"},
               {"mpeg4", "pcma", "on", "MP4V-ES", "PCMA"},
               {"mjpg", "aac", "off", "JPEG", "MPEG4-GENERIC"},
               {"mpeg2", "pcmu", "on", "MPV", "PCMU"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.video);
    SimulatedDevice camera(camsimRtsp({"--video", c.video, "--audio", c.audio, "--metadata"}),
                           kReady);
    auto keys = rtspKeys(camera.port, c.overTcp);
    keys.insert({{"AUDIO", "on"}, {"VAE_ACTIVE", "yes"}, {"VAE_EDVA_ACTIVE", "yes"}});
    Receiver receiver(keys);
    ASSERT_TRUE(receiver.host.video()->awaitFrames(20));
    ASSERT_TRUE(receiver.host.audio()->awaitFrames(10));
    ASSERT_TRUE(eventually([&] { return receiver.host.intake().size() >= 2; }));
    EXPECT_THAT(receiver.host.video()->codecs(), ElementsAre(c.videoCodec));
    EXPECT_THAT(receiver.host.audio()->codecs(), ElementsAre(c.audioCodec));
    EXPECT_THAT(receiver.host.intake()[0].data, testing::StartsWith("<object id="));
    EXPECT_TRUE(receiver.stop());
  }
}

TEST(RtspLogin, DigestAndBasicAreAnswered) {
  for (const char* scheme : {"digest", "basic"}) {
    SCOPED_TRACE(scheme);
    std::vector<std::string> options{"--user", "operator", "--password", "secret"};
    if (std::string(scheme) == "basic") options.emplace_back("--basic");
    SimulatedDevice camera(camsimRtsp(options), kReady);
    {
      Receiver receiver(rtspKeys(camera.port, "on"));
      EXPECT_TRUE(receiver.host.video()->awaitFrames(3));
    }
    auto keys = rtspKeys(camera.port, "on");
    keys["PASSWD"] = "wrong";
    TestHost host(keys);
    EXPECT_LEAVES(receive(host), 0, HasSubstr("/live\": 401 Unauthorized"));
  }
}

// With RTP_TIME the frames carry the camera's clock, moved by the difference
// that was measured first; a jump of the clock is noticed and made good.
TEST(RtspClock, AnOffsetAndAJumpOfTheCamerasClockAreTakenOut) {
  SimulatedDevice camera(camsimRtsp({"--clock-offset", "-3600", "--clock-jump", "120",
                                     "--clock-jump-after", "2", "--gop", "5"}),
                         kReady);
  auto keys = rtspKeys(camera.port, "on");
  keys["RTP_TIME"] = "on";
  // Arrival against stamp: how far the stamps are from the wall clock.
  std::mutex mutex;
  std::vector<std::pair<double, double>> stamps;  // wall clock, stamp
  testing::internal::CaptureStderr();
  {
    TestHost host(keys);
    host.video()->onFrame([&](const SinkFrame& frame) {
      std::lock_guard<std::mutex> held(mutex);
      stamps.emplace_back(now(), secondsOf(frame.tv));
    });
    Kelvane::RTSPMediaProducerImpl producer(host.audio(), host.video(), host.metadata(),
                                            Kelvane::APP_NV);
    host.run(producer);
    EXPECT_TRUE(eventually([&] {
      std::lock_guard<std::mutex> held(mutex);
      return !stamps.empty() && stamps.back().first - stamps.front().first > 4.5;
    }));
    host.stop();
    ASSERT_TRUE(host.awaitEnd());
  }
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, testing::ContainsRegex("RTP time diff: \\+3(599|600)\\."));
  EXPECT_THAT(log, testing::ContainsRegex("New diff: 34(79|80)\\.[0-9]+, Old diff: 3(599|600)\\."));
  for (std::size_t i = 1; i < stamps.size(); ++i) {
    EXPECT_NEAR(stamps[i].second, stamps[i].first, 0.9) << "frame " << i;
    EXPECT_GE(stamps[i].second, stamps[i - 1].second) << "frame " << i;
  }
}

TEST(RtspOtherServer, IsReceivedOverBothTransports) {
  for (const char* overTcp : {"on", "off"}) {
    SCOPED_TRACE(overTcp);
    SimulatedDevice camera(
        {"( videotestsrc is-live=true ! video/x-raw,width=176,height=144,framerate=25/1 "
         "! x264enc tune=zerolatency key-int-max=10 ! rtph264pay name=pay0 pt=96 "
         "audiotestsrc is-live=true ! audio/x-raw,rate=8000,channels=1 ! mulawenc "
         "! rtppcmupay name=pay1 pt=0 )",
         "operator", "secret"},
        kReady, "gst_rtsp_camera");
    auto keys = rtspKeys(camera.port, overTcp);
    keys["AUDIO"] = "on";
    Receiver receiver(keys);
    ASSERT_TRUE(receiver.host.video()->awaitFrames(20));
    ASSERT_TRUE(receiver.host.audio()->awaitFrames(20));
    EXPECT_THAT(receiver.host.video()->codecs(), ElementsAre("H264"));
    EXPECT_THAT(receiver.host.audio()->codecs(), ElementsAre("PCMU"));
    EXPECT_TRUE(receiver.stop());
  }
}
