#include <signal.h>

#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;

namespace {

std::vector<Json::Value> framesOf(RetrieverProgram& program, const std::string& media) {
  std::vector<Json::Value> frames;
  for (const auto& frame : program.events("frame")) {
    if (frame["media"] == media) frames.push_back(frame);
  }
  return frames;
}

}  // namespace

// Sound that shows up late begins another file.
TEST(TransportStream, TheRecordingPlaysAndMetadataIsTraced) {
  const int port = freeUdpPort();
  SimulatedDevice sender({"ts", "--port", std::to_string(port), "--rtp", "--klv", "--seconds", "2"},
                         "sending to");
  const TemporaryFolder folder;
  RetrieverProgram program(
      {{"PROTO", "RTP"}, {"CAMERAMODEL", "Cornet"}, {"RTP_UNICAST_PORT", std::to_string(port)}},
      {"--record", folder.path()});
  ASSERT_TRUE(eventually([&] { return framesOf(program, "video").size() >= 70; }))
      << program.output();
  ASSERT_EQ(program.stop(SIGTERM), 0) << program.output();
  EXPECT_TRUE(program.states().empty());
  const auto metadata = framesOf(program, "metadata");
  EXPECT_GE(metadata.size(), 2U);
  for (const auto& frame : metadata) {
    EXPECT_EQ(frame["size"].asUInt(), 1024U);
    EXPECT_EQ(frame["head"].asString().substr(0, 32), "060e2b34020b01010e01030101000000");
  }
  const auto files = recordingsIn(folder.path());
  ASSERT_FALSE(files.empty());
  int frames = 0;
  for (const std::string& file : files) {
    const std::string row = probed(file, "stream=codec_name,width,nb_read_frames", "v");
    EXPECT_THAT(row, testing::StartsWith("h264,352,"));
    frames += std::stoi(row.substr(row.rfind(',') + 1));
  }
  EXPECT_GE(frames, 45);
  EXPECT_EQ(probed(files.back(), "stream=codec_name", "a"), "aac\n");
}
