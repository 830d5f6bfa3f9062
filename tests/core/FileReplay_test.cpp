#include <filesystem>

#include "FAKEMediaProducerImpl.h"
#include "KeyFrame.h"
#include "TESTMediaProducerImpl.h"
#include "support/Subprocess.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::FAKEMediaProducerImpl;
using Kelvane::TESTMediaProducerImpl;

namespace {

const std::string kKey = hex("00 00 00 01 67 42  00 00 01 65 88 11 22");
const std::string kSlice = hex("00 00 00 01 41 9a 33");

// A replay of one clip.
struct Replay {
  explicit Replay(const std::string& contents)
      : host({{"PROTO", "FAKE"},
              {"MEDIA_FORMAT", "h264"},
              {"FRAMERATE", "50"},
              {"SOURCE", folder.path() + "/clip"}}) {
    writeFile(folder.path() + "/clip.h264", contents);
  }
  const TemporaryFolder folder;
  TestHost host;
  FAKEMediaProducerImpl producer{host.audio(), host.video()};
};

}  // namespace

TEST(KeyFrame, RulesOfEachFormat) {
  const struct {
    const char* format;
    const char* frame;
    bool starts;
  } cases[] = {
      {"mjpg", "", true},
      {"mpeg4", "000001b0", true},
      {"mpeg4", "000001b5", true},
      {"mpeg4", "000001b3", true},
      {"mpeg4", "000001b610", false},               // its own start code is not looked at
      {"mpeg4", "000001aa 00 000001b6 3f", true},   // a second one is, behind one more zero
      {"mpeg4", "000001aa 00 000001b6 40", false},  // P
      {"mpeg4", "000001aa 00 000001b6", false},     // cut off
      {"mpeg4", "000001aa 00 000001", false},
      {"mpeg4", "000001aa 11 22", false},
      {"mpeg4", "0000", false},
      {"h264", "00000001 67", true},
      {"h264", "00000001 68", true},
      {"h264", "00000001 65 88", false},
      {"h264", "00000001 06 0011 05 80 00 000001 65", false},  // search begins at byte 7
      {"h264", "00000001 06 0511 80 00 00000001 65", true},
      {"h264", "00000001 09 f0 00 00000001 65", true},
      {"h264", "00000001 09 f0 00 00000001 61", false},
      {"h264", "00000001 09 f0 00 00000001", false},
      {"h264", "000000", false},
      {"mpeg2", "000001b3", true},
      {"mpeg2", "000001b8", true},
      {"mpeg2", "00000100 0008", true},
      {"mpeg2", "00000100 0010", false},
      {"mpeg2", "00000100 00", false},
      {"mpeg2", "000001aa 11 00 000001b3", true},
      {"mpeg2", "000001aa 11 00 00000100 00 08", true},
      {"mpeg2", "000001aa 11 00 00000100 00 10", false},
  };
  for (const auto& c : cases) {
    std::string frame = hex(c.frame);
    // On the heap and exactly as long as it is: a read behind it is seen.
    std::vector<uint8_t> exact(frame.begin(), frame.end());
    EXPECT_EQ(Kelvane::isI_VOP(exact.data(), static_cast<unsigned>(exact.size()), c.format),
              c.starts)
        << c.format << " " << c.frame;
  }
  TestHost host({{"MEDIA_FORMAT", "h265"}, {"SOURCE", "/nonexistent/clip"}});
  uint8_t none = 0;
  EXPECT_FATAL_REPORT(Kelvane::isI_VOP(&none, 1, "h265"), "Unsupported media format: h265",
                      "STREAM_LOST UNK");
  EXPECT_FATAL_REPORT(FAKEMediaProducerImpl(host.audio(), host.video()).start(),
                      "Unsupported media format: h265", "STREAM_LOST UNK");
}

TEST(FileReplay, LoopsFromAKeyFrameOnAtTheConfiguredRate) {
  Replay replay(kSlice + kKey + kSlice);
  const auto begin = std::chrono::steady_clock::now();
  replay.host.run(replay.producer);
  ASSERT_TRUE(replay.host.video()->awaitFrames(11));
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  replay.host.stop();
  ASSERT_TRUE(replay.host.awaitEnd());
  EXPECT_TRUE(replay.host.result());
  EXPECT_GE(took.count(), 0.18);  // the first frame does not wait, ten more are held
  const auto frames = replay.host.video()->data();
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(frames[i], i % 2 == 0 ? kKey : kSlice) << i;
  }
  EXPECT_TRUE(replay.host.states().empty());
}

TEST(FileReplay, FileWithoutKeyFrameOrFrameYieldsNothingAndStops) {
  for (const std::string& contents : {std::string(), kSlice + kSlice}) {
    Replay replay(contents);
    testing::internal::CaptureStderr();
    replay.host.run(replay.producer);
    poll(nullptr, 0, 20);
    replay.host.stop();
    EXPECT_TRUE(replay.host.awaitEnd());
    EXPECT_EQ(replay.host.video()->count(), 0U);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.find("Skiping to I-frame") != std::string::npos, !contents.empty());
  }
}

// These share the fixed file of the test picture.
TEST(TestPicture, PlaysOrEndsTheProcess) {
  const std::string name = "/tmp/test.jpg";
  const bool existed = std::filesystem::exists(name);
  if (existed) GTEST_SKIP() << name << " belongs to somebody else";
  TestHost host({{"PROTO", "TEST"}, {"FRAMERATE", "1000"}});
  const auto start = [&] { TESTMediaProducerImpl(host.audio(), host.video()).start(); };
  EXPECT_FATAL_REPORT(start(), "Could not open file /tmp/test.jpg: No such file",
                      "STREAM_LOST UNK");
  writeFile(name, "");
  EXPECT_FATAL_REPORT(start(), "fread() fails: ", "STREAM_LOST UNK");
  writeFile(name, std::string(1000000, 'x'));
  EXPECT_FATAL_REPORT(start(), "frame may or not may be truncated", "STREAM_LOST UNK");
  writeFile(name, std::string(999999, 'x'));
  TESTMediaProducerImpl producer(host.audio(), host.video());
  host.run(producer);
  EXPECT_TRUE(host.video()->awaitFrames(3));
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
  EXPECT_EQ(host.video()->frames()[2].data.size(), 999999U);
  EXPECT_TRUE(host.video()->codecs().empty());
  std::filesystem::remove(name);
}
