#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <sstream>

#include "support/RetrieverProgram.h"

using namespace testsupport;

namespace {

// A simulated RTSP camera and the keys to receive it with.
struct RtspCamera {
  explicit RtspCamera(const std::vector<std::string>& options) : process(command(options)) {
    if (!process.awaitOutput("/live\n")) throw std::runtime_error("camsim: " + process.output());
    const std::string url = process.output();
    port = url.substr(url.rfind(':') + 1, url.rfind('/') - url.rfind(':') - 1);
  }
  static std::vector<std::string> command(const std::vector<std::string>& options) {
    std::vector<std::string> words{builtProgram("camsim"), "rtsp", "--port", "0", "--seconds", "2"};
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }
  RetrieverProgram::Keys keys(const std::string& overTcp) const {
    return {{"PROTO", "RTSP"},     {"DEVIP", "127.0.0.1"},   {"RTSP_PORT", port},
            {"RTSP_URL", "/live"}, {"USRNAME", ""},          {"PASSWD", ""},
            {"AUDIO", "on"},       {"RTP_OVER_TCP", overTcp}};
  }

  Subprocess process;
  std::string port;
};

struct Packet {
  double time;  // seconds
  bool key;
};

std::vector<Packet> packets(const std::string& file, const std::string& stream) {
  std::istringstream lines(outputOf({"ffprobe", "-v", "error", "-select_streams", stream, "-of",
                                     "csv=p=0", "-show_entries", "packet=pts_time,flags", file}));
  std::vector<Packet> all;
  for (std::string line; std::getline(lines, line);) {
    all.push_back({std::stod(line), line.find('K') != std::string::npos});
  }
  return all;
}

struct Case {
  const char* audio;
  const char* overTcp;
};
void PrintTo(const Case& each, std::ostream* out) {
  *out << each.audio;
}
class RtspRecording : public testing::TestWithParam<Case> {};

}  // namespace

// What a player needs: one file that begins at a key frame, times that only
// grow, both media as long as they were received and in step.
TEST_P(RtspRecording, PlaysWithSoundInStep) {
  RtspCamera camera({"--audio", GetParam().audio});
  TemporaryFolder folder;
  RetrieverProgram program(camera.keys(GetParam().overTcp),
                           {"--record", folder.path(), "--duration", "5"});
  ASSERT_EQ(program.wait(), 0) << program.output();
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
    if (entry.path().extension() == ".mkv") files.push_back(entry.path());
  }
  ASSERT_EQ(files.size(), 1U);

  for (const char* stream : {"v", "a"}) {
    SCOPED_TRACE(stream);
    const auto all = packets(files[0], stream);
    ASSERT_GT(all.size(), 2U);
    for (std::size_t i = 1; i < all.size(); ++i) ASSERT_GE(all[i].time, all[i - 1].time) << i;
    EXPECT_NEAR(all.front().time, 0, 0.3) << "out of step from the beginning";
    EXPECT_NEAR(all.back().time, 5, 1) << "or at the end";
    EXPECT_TRUE(all.front().key);
  }
  const auto video = packets(files[0], "v");
  const auto audio = packets(files[0], "a");
  EXPECT_NEAR(video.back().time, audio.back().time, 0.3);
  const double frames = static_cast<double>(video.size() - 1);
  EXPECT_NEAR(frames / (video.back().time - video.front().time), 25, 1);
  const auto keys =
      std::count_if(video.begin(), video.end(), [](const Packet& packet) { return packet.key; });
  EXPECT_NEAR(static_cast<double>(keys), video.back().time, 1.5) << "one a second";
  // Decodes all of it; an error would stand in the output.
  EXPECT_EQ(outputOf({"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                      "stream=nb_read_frames", "-of", "csv=p=0", files[0]}),
            std::to_string(video.size()) + "\n" + std::to_string(audio.size()) + "\n");
}

INSTANTIATE_TEST_SUITE_P(Audio, RtspRecording,
                         testing::Values(Case{"aac", "on"}, Case{"pcmu", "off"}),
                         [](const auto& each) { return std::string(each.param.audio); });

TEST(RtspProgram, TracesTheSinksAndLeavesWithZeroWhenTheCameraIsGone) {
  RtspCamera camera({"--audio", "pcma"});
  RetrieverProgram program(camera.keys("on"));
  ASSERT_TRUE(program.awaitEvents("frame", 40)) << program.output();
  camera.process.signal(SIGKILL);
  EXPECT_EQ(program.wait(), 0) << program.output();
  EXPECT_THAT(program.states(), testing::ElementsAre("STREAM_LOST DEV_CLOSED_SOCKET"));
  std::vector<std::string> inits;
  for (const auto& event : program.events("init")) {
    inits.push_back(event["media"].asString() + " " + event["codec"].asString());
  }
  EXPECT_THAT(inits, testing::ElementsAre("video H264", "audio PCMA"));
}
