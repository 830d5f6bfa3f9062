#include <signal.h>
#include <zlib.h>

#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;

// The frames' sizes cut the file into pieces without a gap, whose checksums
// are the frames'; as many as the encoder made, twice.
TEST(FileReplay, TheTraceHasTheFramesOfTheFileInOrderAndTheEventsOfARun) {
  constexpr unsigned kFramesInClip = 25;
  const TemporaryFolder folder;
  const std::string source = folder.path() + "/clip";
  outputOf({builtProgram("camsim"), "clip", "--seconds", "1", source + ".h264"});
  const std::string clip = readFile(source + ".h264");
  RetrieverProgram program({{"PROTO", "FAKE"}, {"SOURCE", source}, {"FRAMERATE", "50"}});
  ASSERT_TRUE(program.awaitEvents("frame", 2 * kFramesInClip)) << program.output();
  EXPECT_EQ(program.stop(SIGTERM), 0) << program.output();

  const auto frames = program.events("frame");
  std::size_t offset = 0;
  for (unsigned i = 0; i < 2 * kFramesInClip; ++i) {
    SCOPED_TRACE(i);
    if (i == kFramesInClip) {
      EXPECT_EQ(offset, clip.size()) << "frames are missing at the end of the file";
      offset = 0;
    }
    const std::string expected = clip.substr(offset, frames[i]["size"].asUInt());
    char crc[16];
    snprintf(crc, sizeof crc, "%08lx",
             crc32_z(0, reinterpret_cast<const Bytef*>(expected.data()), expected.size()));
    EXPECT_EQ(frames[i]["crc32"].asString(), crc);
    EXPECT_EQ(frames[i]["media"].asString(), "video");
    offset += expected.size();
  }
  const auto events = program.events();
  EXPECT_EQ(events.front()["event"], "start");
  EXPECT_EQ(events.front()["producer"], "FAKEMediaProducerImpl");
  EXPECT_EQ(events.front()["pid"].asInt(), program.process().pid());
  EXPECT_EQ(program.events("stop").front()["reason"], "signal");
  EXPECT_EQ(events.back()["event"], "end");
  EXPECT_EQ(events.back()["result"], true);
}
