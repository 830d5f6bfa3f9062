#include <sstream>

#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;

namespace {

struct Packet {
  double time;  // seconds
  bool key;
};

std::vector<Packet> packets(const std::string& file, const std::string& stream) {
  std::istringstream lines(probed(file, "packet=pts_time,flags", stream));
  std::vector<Packet> all;
  for (std::string line; std::getline(lines, line);) {
    all.push_back({std::stod(line), line.find('K') != std::string::npos});
  }
  return all;
}

class RtspRecording : public testing::TestWithParam<bool> {};

}  // namespace

// What a player needs: one file that begins at a key frame, times that only
// grow, both media as long as they were received and in step.
TEST_P(RtspRecording, PlaysWithSoundInStep) {
  const bool overTcp = GetParam();
  const SimulatedDevice camera(
      {"rtsp", "--port", "0", "--seconds", "2", "--audio", overTcp ? "aac" : "pcmu"}, "/live\n");
  const TemporaryFolder folder;
  RetrieverProgram program({{"PROTO", "RTSP"},
                            {"DEVIP", "127.0.0.1"},
                            {"RTSP_PORT", camera.port},
                            {"RTSP_URL", "/live"},
                            {"USRNAME", ""},
                            {"PASSWD", ""},
                            {"AUDIO", "on"},
                            {"RTP_OVER_TCP", overTcp ? "on" : "off"}},
                           {"--record", folder.path(), "--duration", "4"});
  ASSERT_EQ(program.wait(), 0) << program.output();
  const auto files = recordingsIn(folder.path());
  ASSERT_EQ(files.size(), 1U);

  for (const char* stream : {"v", "a"}) {
    SCOPED_TRACE(stream);
    const auto all = packets(files[0], stream);
    ASSERT_GT(all.size(), 2U);
    for (std::size_t i = 1; i < all.size(); ++i) ASSERT_GE(all[i].time, all[i - 1].time) << i;
    EXPECT_NEAR(all.front().time, 0, 0.3) << "out of step from the beginning";
    EXPECT_NEAR(all.back().time, 4, 1) << "or at the end";
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
  EXPECT_EQ(probed(files[0], "stream=nb_read_frames"),
            std::to_string(video.size()) + "\n" + std::to_string(audio.size()) + "\n");
}

INSTANTIATE_TEST_SUITE_P(OverTcp, RtspRecording, testing::Bool());