#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "service/Servers.h"
#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;
using testing::HasSubstr;

namespace {

// An installation with one iStream device: the master node's bus and event
// log, the retriever, and the recorder process that pushes.
struct Installation {
  explicit Installation(const std::vector<std::string>& pushes,
                        const std::vector<std::string>& options = {})
      : bus(ownLoopbackAddress(), 10000),
        eventLog({builtProgram("elogd"), "--host", bus.address()}),
        ready(eventLog.awaitOutput("serving tdx.eventlog")),
        retriever({{"PROTO", "HTTP"},
                   {"CAMERAMODEL", "iStream"},
                   {"MEDIA_FORMAT", "h264"},
                   {"DEVID", id},
                   {"MASTER_NODE", ownLoopbackAddress()}},
                  options),
        recorder(command(pushes)) {}
  ~Installation() {
    // What a program that did not end in order leaves, and the snapshot.
    std::filesystem::remove("/tmp/." + id + ".media.recorder.sock");
    std::filesystem::remove("/tmp/" + id + ".jpg");
  }
  std::vector<std::string> command(std::vector<std::string> pushes) const {
    pushes.insert(pushes.begin(), {builtProgram("camsim"), "pushin", "--devid", id});
    return pushes;
  }

  const std::string id = "push" + std::to_string(getpid());
  BusServer bus;
  Subprocess eventLog;
  const bool ready;
  RetrieverProgram retriever;
  Subprocess recorder;
};

}  // namespace

TEST(PushIn, TheRecordingPlaysWithAudio) {
  constexpr unsigned kFrames = 100;  // four seconds, in one
  const TemporaryFolder recordings;
  Installation site(
      {"--audio", "aac", "--gps", "--speed", "4", "--clock-offset", "-90", "--text", "two words"},
      {"--record", recordings.path()});
  ASSERT_TRUE(site.retriever.awaitEvents("extra_data", kFrames)) << site.retriever.output();
  site.recorder.signal(SIGTERM);
  site.recorder.wait();
  EXPECT_EQ(site.retriever.stop(SIGTERM), 0) << site.retriever.output();

  EXPECT_EQ(site.retriever.events("start")[0]["producer"].asString(), "PushInMediaProducerImpl");
  const auto files = recordingsIn(recordings.path());
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(probed(files[0], "stream=codec_name,width,height", "v"), "h264,352,288\n");
  EXPECT_EQ(probed(files[0], "stream=codec_name,sample_rate,channels", "a"), "aac,16000,1\n");
  EXPECT_EQ(complaintsOf(files[0]), "");
  // Every frame that was handed over is in the file, in real time.
  unsigned video = 0;
  for (const auto& frame : site.retriever.events("frame")) video += frame["media"] == "video";
  EXPECT_EQ(std::stoul(probed(files[0], "stream=nb_read_frames", "v")), video);
  EXPECT_NEAR(std::stod(probed(files[0], "format=duration")), video / 25.0, 0.4);
  // The tone is there: silence would be at -91 dB.
  EXPECT_THAT(
      outputOf({"sh", "-c",
                "ffmpeg -nostdin -i '" + files[0] +
                    "' -vn -af volumedetect -f null - 2>&1 | grep -o 'mean_volume: -[0-9]*'"}),
      testing::ContainsRegex("mean_volume: -[12][0-9]\n"));
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
