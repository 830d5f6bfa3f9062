#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <set>

#include "service/Servers.h"
#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;
using testing::HasSubstr;

namespace {

// An installation with one iStream device: the master node's bus and event
// log, the retriever, and the recorder process that pushes.
class Installation {
 public:
  explicit Installation(const std::vector<std::string>& recorder,
                        const std::vector<std::string>& options = {})
      : bus_(ownLoopbackAddress(), 10000),
        eventLog({builtProgram("elogd"), "--host", bus_.address()}),
        ready_(eventLog.awaitOutput("serving tdx.eventlog")),
        retriever({{"PROTO", "HTTP"},
                   {"CAMERAMODEL", "iStream"},
                   {"MEDIA_FORMAT", "h264"},
                   {"DEVID", id()},
                   {"MASTER_NODE", ownLoopbackAddress()}},
                  options),
        recorder_(command(recorder)) {}
  ~Installation() {
    // What a program that did not end in order leaves, and the snapshot.
    std::filesystem::remove("/tmp/." + id() + ".media.recorder.sock");
    std::filesystem::remove("/tmp/" + id() + ".jpg");
  }

  Subprocess& recorder() { return recorder_; }

 private:
  static std::string id() { return "push" + std::to_string(getpid()); }
  static std::vector<std::string> command(const std::vector<std::string>& recorder) {
    std::vector<std::string> words{builtProgram("camsim"), "pushin", "--devid", id()};
    words.insert(words.end(), recorder.begin(), recorder.end());
    return words;
  }

  BusServer bus_;

 public:
  Subprocess eventLog;

 private:
  const bool ready_;

 public:
  RetrieverProgram retriever;

 private:
  Subprocess recorder_;
};

std::string probed(const std::string& file, const std::string& stream, const std::string& entries) {
  return outputOf({"ffprobe", "-v", "error", "-of", "csv=p=0", "-select_streams", stream,
                   "-count_packets", "-show_entries", entries, file});
}

struct Case {
  const char* audio;
  const char* expected;  // codec, rate, channels
};
void PrintTo(const Case& each, std::ostream* out) {
  *out << each.audio;
}
class PushIn : public testing::TestWithParam<Case> {};

}  // namespace

TEST_P(PushIn, TheRecordingPlaysWithAudio) {
  constexpr unsigned kFrames = 100;  // four seconds, in one
  const TemporaryFolder recordings;
  Installation site({"--audio", GetParam().audio, "--gps", "--speed", "4", "--clock-offset", "-90",
                     "--text", "two words"},
                    {"--record", recordings.path()});
  ASSERT_TRUE(site.retriever.awaitEvents("extra_data", kFrames)) << site.retriever.output();
  site.recorder().signal(SIGTERM);
  site.recorder().wait();
  EXPECT_EQ(site.retriever.stop(SIGTERM), 0) << site.retriever.output();

  EXPECT_EQ(site.retriever.events("start")[0]["producer"].asString(), "PushInMediaProducerImpl");
  std::string file;
  for (const auto& entry : std::filesystem::directory_iterator(recordings.path())) {
    if (entry.path().extension() == ".mkv") file = entry.path();
  }
  ASSERT_NE(file, "");
  EXPECT_THAT(probed(file, "v", "stream=codec_name,width,height"), HasSubstr("h264,352,288"));
  EXPECT_THAT(probed(file, "a", "stream=codec_name,sample_rate,channels"),
              HasSubstr(GetParam().expected));
  EXPECT_EQ(outputOf({"ffmpeg", "-v", "error", "-nostdin", "-i", file, "-f", "null", "-"}), "");
  // Every frame that was handed over is in the file, in real time.
  unsigned video = 0;
  for (const auto& frame : site.retriever.events("frame")) video += frame["media"] == "video";
  EXPECT_EQ(std::stoul(probed(file, "v", "stream=nb_read_packets")), video);
  const double seconds = std::stod(outputOf(
      {"ffprobe", "-v", "error", "-of", "csv=p=0", "-show_entries", "format=duration", file}));
  EXPECT_NEAR(seconds, video / 25.0, 0.4);
  // The tone is there: silence would be at -91 dB.
  EXPECT_THAT(
      outputOf({"sh", "-c",
                "ffmpeg -nostdin -i '" + file +
                    "' -vn -af volumedetect -f null - 2>&1 | grep -o 'mean_volume: -[0-9]*'"}),
      testing::ContainsRegex("mean_volume: -[12][0-9]\n"));
}
INSTANTIATE_TEST_SUITE_P(Audio, PushIn,
                         testing::Values(Case{"aac", "aac,16000,1"},
                                         Case{"pcmu", "pcm_mulaw,8000,1"},
                                         Case{"l16", "pcm_s16be,16000,1"},
                                         Case{"l8", "pcm_u8,8000,1"}),
                         [](const auto& test) { return std::string(test.param.audio); });

// One fault in each ten messages: named, and no frame around it is lost.
TEST(PushInFaults, TheStreamGoesOn) {
  const char* const kFaults[] = {"no-length",    "negative",       "oversized",
                                 "lying-length", "endless-header", "bad-offset"};
  for (const char* fault : kFaults) {
    SCOPED_TRACE(fault);
    Installation site({"--audio", "none", "--seconds", "1", "--count", "60", "--speed", "8",
                       "--fault", fault, "--fault-every", "10"});
    ASSERT_TRUE(site.retriever.awaitEvents("frame", 60)) << site.retriever.output();
    EXPECT_EQ(site.recorder().wait(), 0) << site.recorder().output();
    EXPECT_EQ(site.retriever.stop(SIGTERM), 0);
    EXPECT_THAT(site.retriever.output(), HasSubstr("ERROR"));
    EXPECT_TRUE(site.retriever.states().empty());
    std::set<std::string> distinct;
    for (const auto& frame : site.retriever.events("frame")) {
      EXPECT_EQ(frame["media"].asString(), "video");
      distinct.insert(frame["crc32"].asString());
    }
    EXPECT_EQ(distinct.size(), 25U) << "only frames of the clip";
  }
}

TEST(PushInFaults, AContentTypeOutOfStepEndsTheProgram) {
  Installation site({"--audio", "none", "--fault", "bad-type", "--fault-every", "5"});
  EXPECT_EQ(site.retriever.wait(), 1);
  EXPECT_THAT(site.retriever.output(), HasSubstr("Invalid content type: audio/L16/8000"));
  EXPECT_TRUE(site.retriever.states().empty());
}

TEST(PushInFaults, ARecorderThatStopsMidwayIsLeftAfterTheGrace) {
  Installation site({"--audio", "none", "--stall-after", "5", "--speed", "4"},
                    {"--stop-grace", "0.3"});
  ASSERT_TRUE(site.retriever.awaitEvents("frame", 4)) << site.retriever.output();
  ASSERT_TRUE(site.recorder().awaitOutput("stalled"));
  EXPECT_EQ(site.retriever.stop(SIGTERM), 0) << site.retriever.output();
  EXPECT_THAT(site.retriever.output(), HasSubstr("WARN"));
}

// The broker comes up behind the stream and asks for a login.
TEST(PushInAnnouncer, TellsTheEventLogAndTheTopic) {
  BrokerServer broker;
  broker.stop();
  const std::string login =
      std::string("?username=") + kBrokerUser + "&password=" + kBrokerPassword;
  Installation site({"--audio", "none", "--gps", "--text", "door open"},
                    {"--broker", broker.uri() + login});
  ASSERT_TRUE(site.retriever.awaitEvents("frame", 1)) << site.retriever.output();
  ASSERT_TRUE(site.retriever.process().awaitOutput("No AMQ connections found"))
      << site.retriever.output();
  EXPECT_THAT(site.retriever.output(),
              HasSubstr("No session of the broker " + broker.uri() + ": cannot connect to"));

  broker.restart();
  const auto reader = javaClient(broker, "listen", "amq.gis.topic", "2");
  ASSERT_TRUE(reader->awaitOutput("ready")) << reader->output();
  EXPECT_EQ(reader->wait(), 0) << reader->output();
  const std::string objid = "objid=\"" + std::to_string(getpid()) + "\"";
  const std::string position = "text: <message type=\"gisTrgtMobile\" " + objid +
                               " lat=\"55.75[0-9]+\" lon=\"37.[0-9]+\" alt=\"[0-9.]+\" "
                               "pts=\"[0-9]+\" />\n";
  EXPECT_THAT(reader->output(), testing::ContainsRegex(position + position));
  EXPECT_THAT(site.eventLog.output(),
              testing::ContainsRegex("submitAction create from=\"[0-9]+\" msg=\"door open *\" " +
                                     objid + " source=\"4\" when=\"[0-9]+\""));
  EXPECT_EQ(site.retriever.stop(SIGTERM), 0) << site.retriever.output();
  EXPECT_THAT(site.retriever.output(), testing::Not(HasSubstr(kBrokerPassword)));
}

TEST(PushInAnnouncer, AnUnreachableBusEndsTheProgram) {
  const std::string nobody = ownLoopbackAddress(1);
  RetrieverProgram retriever(
      {{"PROTO", "HTTP"}, {"CAMERAMODEL", "iStream"}, {"MASTER_NODE", nobody}});
  EXPECT_EQ(retriever.wait(), 1);
  EXPECT_THAT(retriever.output(), HasSubstr("cannot connect to the message bus at " + nobody));
  EXPECT_THAT(retriever.output(), HasSubstr("ERROR"));
}
