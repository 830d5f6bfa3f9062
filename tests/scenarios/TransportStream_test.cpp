#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <memory>
#include <set>

#include "support/RetrieverProgram.h"

using namespace testsupport;

namespace {

constexpr char kUasKey[] = "060e2b34020b01010e01030101000000";

struct Sender {
  Sender(const std::string& protocol, int port, const std::vector<std::string>& options)
      : process(command(protocol, port, options)) {}
  static std::vector<std::string> command(const std::string& protocol, int port,
                                          const std::vector<std::string>& options) {
    std::vector<std::string> words{builtProgram("camsim"), protocol, "--port",
                                   std::to_string(port)};
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }
  Subprocess process;
};

RetrieverProgram::Keys keysFor(const std::string& proto, int port) {
  return {{"PROTO", proto},
          {"CAMERAMODEL", "Cornet"},
          {"MEDIA_FORMAT", "h264"},
          {"RTP_UNICAST_PORT", std::to_string(port)}};
}

unsigned framesOf(RetrieverProgram& program, const std::string& media) {
  unsigned count = 0;
  for (const auto& frame : program.events("frame")) count += frame["media"] == media ? 1U : 0U;
  return count;
}

std::string probe(const std::string& file, const std::string& stream, const std::string& what) {
  return outputOf({"ffprobe", "-v", "error", "-count_frames", "-select_streams", stream,
                   "-show_entries", "stream=" + what, "-of", "default=nw=1:nk=1", file});
}

}  // namespace

TEST(TransportStream, VideoSoundAndMetadataArriveWhoeverBegins) {
  for (const char* proto : {"UDP", "RTP"}) {
    SCOPED_TRACE(proto);
    const int port = freeUdpPort();
    std::vector<std::string> options{"--klv", "--seconds", "2"};
    if (std::string(proto) == "RTP") options.push_back("--rtp");
    std::unique_ptr<Sender> sender;
    const auto send = [&] { sender = std::make_unique<Sender>("ts", port, options); };
    const bool senderFirst = std::string(proto) == "RTP";
    if (senderFirst) {
      send();
      ASSERT_TRUE(sender->process.awaitOutput("sending to"));
    }
    RetrieverProgram program(keysFor(proto, port));
    ASSERT_TRUE(program.awaitEvents("start", 1));
    if (!senderFirst) send();
    for (const char* media : {"video", "audio", "metadata"}) {
      EXPECT_TRUE(eventually([&] { return framesOf(program, media) >= 4; }))
          << media << sender->process.output() << program.output();
    }
    EXPECT_EQ(program.stop(SIGTERM), 0);
    for (const auto& frame : program.events("frame")) {
      if (frame["media"] != "metadata") continue;
      EXPECT_EQ(frame["size"].asUInt(), 1024U);
      EXPECT_EQ(frame["head"].asString().substr(0, 32), kUasKey);
    }
    for (const auto& init : program.events("init")) {
      if (init["media"] != "audio") continue;
      EXPECT_EQ(init["codec"], "MPEG4-GENERIC");
      EXPECT_EQ(init["config"], "1208");
    }
    EXPECT_TRUE(program.states().empty());
  }
}

TEST(TransportStream, TheRecordingPlays) {
  const int port = freeUdpPort();
  Sender sender("ts", port, {"--seconds", "2"});
  TemporaryFolder folder;
  RetrieverProgram program(keysFor("UDP", port), {"--record", folder.path()});
  ASSERT_TRUE(eventually([&] { return framesOf(program, "video") >= 100; })) << program.output();
  ASSERT_EQ(program.stop(SIGTERM), 0) << program.output();
  // Sound that shows up late begins another file.
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    if (entry.path().extension() == ".mkv") files.insert(entry.path());
  }
  ASSERT_FALSE(files.empty());
  int frames = 0;
  for (const std::string& file : files) {
    EXPECT_EQ(probe(file, "v", "codec_name"), "h264\n");
    EXPECT_EQ(probe(file, "v", "width"), "352\n");
    frames += std::stoi(probe(file, "v", "nb_read_frames"));
  }
  EXPECT_GE(frames, 75);
  EXPECT_EQ(probe(*files.rbegin(), "a", "codec_name"), "aac\n");
}

TEST(TransportStream, ABadNetworkIsSurvived) {
  const struct {
    const char* protocol;
    const char* proto;
    const char* model;
  } cases[] = {{"ts", "UDP", "Cornet"}, {"rtp", "RTP", "any"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.protocol);
    const int port = freeUdpPort();
    Sender sender(c.protocol, port, {"--loss", "5", "--reorder", "5", "--garbage", "20"});
    auto keys = keysFor(c.proto, port);
    keys["CAMERAMODEL"] = c.model;
    RetrieverProgram program(keys);
    EXPECT_TRUE(eventually([&] { return framesOf(program, "video") >= 50; })) << program.output();
    EXPECT_EQ(program.stop(SIGTERM), 0) << program.output();
  }
}
