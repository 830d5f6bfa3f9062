#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <zlib.h>

#include <fstream>
#include <iterator>

#include "support/RetrieverProgram.h"

using namespace testsupport;

namespace {

// A clip on disk, and the program that replays it.
struct Replay {
  explicit Replay(const std::string& format, const std::string& extension)
      : source(folder.path() + "/clip") {
    outputOf(
        {builtProgram("camsim"), "clip", "--seconds", "1", "--format", format, source + extension});
    std::ifstream file(source + extension, std::ios::binary);
    clip.assign(std::istreambuf_iterator<char>(file), {});
  }
  RetrieverProgram::Keys keys(const std::string& format) const {
    return {{"PROTO", "FAKE"}, {"MEDIA_FORMAT", format}, {"SOURCE", source}};
  }

  TemporaryFolder folder;
  std::string source;
  std::string clip;
};

std::string crcOf(const std::string& data) {
  char text[16];
  snprintf(text, sizeof text, "%08lx",
           crc32_z(0, reinterpret_cast<const Bytef*>(data.data()), data.size()));
  return text;
}

double secondsOf(const Json::Value& tv) {
  return tv[0].asDouble() + tv[1].asDouble() / 1e6;
}

struct Case {
  const char* format;
  const char* extension;
};
void PrintTo(const Case& each, std::ostream* out) {
  *out << each.format;
}
class FileReplay : public testing::TestWithParam<Case> {};

}  // namespace

// The frames' sizes cut the file into pieces without a gap, whose checksums
// are the frames'; as many as the encoder made, twice, at the wanted rate.
TEST_P(FileReplay, TheTraceHasTheFramesOfTheFileInOrder) {
  constexpr unsigned kFramesInClip = 25;
  constexpr double kFramerate = 50;
  const Replay replay(GetParam().format, GetParam().extension);
  auto keys = replay.keys(GetParam().format);
  keys["FRAMERATE"] = "50";
  RetrieverProgram program(keys);
  ASSERT_TRUE(program.awaitEvents("frame", 2 * kFramesInClip)) << program.output();
  EXPECT_EQ(program.stop(SIGTERM), 0) << program.output();

  const auto frames = program.events("frame");
  std::size_t offset = 0;
  for (unsigned i = 0; i < 2 * kFramesInClip; ++i) {
    SCOPED_TRACE(i);
    if (i == kFramesInClip) {
      EXPECT_EQ(offset, replay.clip.size()) << "frames are missing at the end of the file";
      offset = 0;
    }
    const std::string expected = replay.clip.substr(offset, frames[i]["size"].asUInt());
    EXPECT_EQ(frames[i]["crc32"].asString(), crcOf(expected));
    EXPECT_EQ(frames[i]["media"].asString(), "video");
    offset += expected.size();
  }
  // The first frame does not wait, and a late one moves the schedule: never faster.
  const double took = secondsOf(frames[2 * kFramesInClip - 1]["tv"]) - secondsOf(frames[1]["tv"]);
  const double rate = (2 * kFramesInClip - 2) / took;
  EXPECT_LT(rate, kFramerate * 1.03);
  EXPECT_GT(rate, kFramerate * 0.6);
}

INSTANTIATE_TEST_SUITE_P(Formats, FileReplay,
                         testing::Values(Case{"h264", ".h264"}, Case{"mpeg4", ".m4v"},
                                         Case{"mpeg2", ".mpg"}, Case{"mjpg", ".mjpg"}),
                         [](const auto& each) { return std::string(each.param.format); });

TEST(FileReplayTrace, HasTheEventsOfAWholeRunInOrder) {
  const Replay replay("h264", ".h264");
  RetrieverProgram program(replay.keys("h264"), {"--duration", "0.3"});
  EXPECT_EQ(program.wait(), 0) << program.output();
  const auto events = program.events();
  ASSERT_GE(events.size(), 4U);
  EXPECT_EQ(events.front()["event"], "start");
  EXPECT_EQ(events.front()["producer"], "FAKEMediaProducerImpl");
  EXPECT_EQ(events.front()["pid"].asInt(), program.process().pid());
  EXPECT_EQ(events[1]["event"], "frame");
  EXPECT_EQ(events[1]["codec"], "");
  std::string head;
  for (unsigned i = 0; i < 32; ++i) {
    char byte[3];
    snprintf(byte, sizeof byte, "%02x", static_cast<unsigned char>(replay.clip[i]));
    head += byte;
  }
  EXPECT_EQ(events[1]["head"], head);
  EXPECT_EQ(program.events("stop").front()["reason"], "duration");
  EXPECT_EQ(events.back()["event"], "end");
  EXPECT_EQ(events.back()["result"], true);
}
