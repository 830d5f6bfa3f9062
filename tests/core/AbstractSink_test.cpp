#include "AbstractSink.h"

#include <unistd.h>

#include <RTPSource.hh>
#include <cstring>

#include "support/Subprocess.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::Cfg;
using Kelvane::Delay_Interval;
using Kelvane::Time_Val;

namespace {

// An RTP source whose frames and clock the test makes up.
class ScriptedSource : public RTPSource {
 public:
  ScriptedSource(UsageEnvironment& env, Groupsock* socket) : RTPSource(env, socket, 96, 90000) {}
  bool synchronised = true;

  void deliver(const std::string& data, const Time_Val& pts) {
    ASSERT_TRUE(isCurrentlyAwaitingData());
    memcpy(fTo, data.data(), data.size());
    fFrameSize = static_cast<unsigned>(data.size());
    fPresentationTime = pts.tv();
    FramedSource::afterGetting(this);
  }

 private:
  Boolean hasBeenSynchronizedUsingRTCP() override { return synchronised ? True : False; }
  void setPacketReorderingThresholdTime(unsigned) override {}
  void doGetNextFrame() override {}
};

long long micros(const timeval& tv) {
  return tv.tv_sec * 1000000LL + tv.tv_usec;
}

class SinkWithSource {
 public:
  explicit SinkWithSource(const TestHost::Keys& keys)
      : host(keys), socket_(host.env(), nullAddress(), Port(0), 1) {
    source = new ScriptedSource(host.env(), &socket_);
    host.video()->startPlaying(*source, nullptr, nullptr);
  }
  ~SinkWithSource() {
    host.video()->stopPlaying();
    Medium::close(source);
  }
  // The time stamp that the frame was handed on with, in microseconds.
  long long stampOf(const Time_Val& pts) {
    source->deliver("frame", pts);
    return micros(host.video()->frames().back().tv);
  }

  TestHost host;
  ScriptedSource* source;

 private:
  Groupsock socket_;
};

constexpr long long kSlack = 300000;  // microseconds for a loaded machine

}  // namespace

TEST(AbstractSink, FollowsTheSourceClockFromTheMomentOfTheFirstFrame) {
  for (const long offset : {-3600L, 3600L}) {  // the source's clock behind, then ahead
    SinkWithSource sink({{"PROTO", "RTSP"}, {"RTP_TIME", "on"}});
    const Time_Val start(Time_Val().seconds() + offset, 500000);
    const long long before = micros(Time_Val().tv());
    const long long first = sink.stampOf(start);
    EXPECT_NEAR(first, before, kSlack);
    // Spacing is the source's, whatever the delivery does.
    EXPECT_EQ(sink.stampOf(start + Delay_Interval(0, 40000)), first + 40000);
    // Half a second is jitter, also backwards: only order is repaired.
    EXPECT_EQ(sink.stampOf(start + Delay_Interval(0, 500000)), first + 500000);
    EXPECT_EQ(sink.stampOf(start + Delay_Interval(0, 100000)), first + 500001);
    EXPECT_EQ(sink.stampOf(start + Delay_Interval(0, 500001)), first + 500001);
    // A jump is a new clock: back to the time of arrival.
    const long long arrival = micros(Time_Val().tv());
    EXPECT_NEAR(sink.stampOf(start + Delay_Interval(60, 0)), std::max(arrival, first + 500002),
                kSlack);
  }
}

TEST(AbstractSink, TakesTheWallClockOtherwise) {
  const struct {
    const char* proto;
    const char* rtpTime;
    bool synchronised;
  } cases[] = {{"RTSP", "off", true}, {"RTSP", "on", false}, {"HTTP", "on", true}};
  for (const auto& c : cases) {
    SinkWithSource sink({{"PROTO", c.proto}, {"RTP_TIME", c.rtpTime}});
    sink.source->synchronised = c.synchronised;
    const long long now = micros(Time_Val().tv());
    EXPECT_NEAR(sink.stampOf(Time_Val(1000, 0)), now, kSlack) << c.proto << c.rtpTime;
    // Nothing is remembered either: an earlier time is not "backwards".
    EXPECT_NEAR(sink.stampOf(Time_Val(900, 0)), now, kSlack) << c.proto << c.rtpTime;
  }
}

TEST(AbstractSink, ProbeRecordsBytesAndOffsets) {
  TestHost host({{"STREAM_PROBE", "60"}, {"PROTO", "HTTP"}});
  const std::string name = "/tmp/" + Cfg::value("OBJID") + ".probe.HTTP.h264";
  host.video()->init("h264");
  host.video()->init("mpeg4");  // ignored
  for (const std::string frame : {"first", "second"}) {
    memcpy(host.video()->buffer, frame.data(), frame.size());
    Kelvane::AbstractSink::afterGettingFrame(host.video(), static_cast<unsigned>(frame.size()), 0,
                                             timeval{}, 0);
  }
  EXPECT_EQ(readFile(name), "firstsecond");
  EXPECT_THAT(readFile(name + ".index"),
              testing::MatchesRegex("[0-9]+\\.[0-9]{6} 0\n[0-9]+\\.[0-9]{6} 5\n"));
  EXPECT_EQ(host.video()->fCodec, "h264");
  unlink(name.c_str());
  unlink((name + ".index").c_str());
}

TEST(AbstractSink, ProbeThatCannotBeOpenedIsRejectedAndTheStreamGoesOn) {
  TestHost host({{"STREAM_PROBE", "60"}, {"OBJID", "no/such/folder"}});
  testing::internal::CaptureStderr();
  host.video()->init("h264");
  Kelvane::AbstractSink::afterGettingFrame(host.video(), 3, 0, timeval{}, 0);
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(log, testing::HasSubstr("Stream probe is rejected because could not open file "
                                      "/tmp/no/such/folder.probe.any.h264:No such file"));
  EXPECT_THAT(log, testing::HasSubstr("h264.index:No such file"));
  EXPECT_EQ(host.video()->count(), 1U);
}

TEST(AbstractSink, WarnsOnceWhenAUdpStreamNeverStarts) {
  TestHost host(
      {{"PROTO", "RTSP"}, {"RTP_OVER_TCP", "off"}, {"UDP_NO_STREAM_WARNING_TIMEOUT", "0"}});
  const auto runLoop = [&host] {
    EventLoopWatchVariable done(0);
    host.env().taskScheduler().scheduleDelayedTask(
        50000, [](void* flag) { *static_cast<EventLoopWatchVariable*>(flag) = 1; }, &done);
    testing::internal::CaptureStderr();
    host.env().taskScheduler().doEventLoop(&done);
    return testing::internal::GetCapturedStderr();
  };
  host.video()->init("H264");
  EXPECT_THAT(runLoop(), testing::HasSubstr("No media stream on UDP channel for \"H264\" "
                                            "(try RTP_OVER_TCP=on?)"));
  host.audio()->init("PCMU", nullptr, 0U);
  Kelvane::AbstractSink::afterGettingFrame(host.audio(), 1, 0, timeval{}, 0);
  EXPECT_EQ(runLoop(), "");
}
