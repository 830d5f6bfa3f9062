#include <signal.h>
#include <sys/socket.h>

#include <filesystem>

#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;

namespace {

// A recorded replay of a clip.
struct RecordedReplay {
  explicit RecordedReplay(const std::vector<std::string>& options = {}) {
    outputOf({builtProgram("camsim"), "clip", "--seconds", "1", folder.path() + "/clip.h264"});
    std::vector<std::string> all{"--record", folder.path()};
    all.insert(all.end(), options.begin(), options.end());
    program = std::make_unique<RetrieverProgram>(
        RetrieverProgram::Keys{{"PROTO", "FAKE"}, {"SOURCE", folder.path() + "/clip"}}, all);
  }
  // Time of the last picture that plays, in seconds of the file.
  double played() const {
    const auto files = recordingsIn(folder.path());
    if (files.size() != 1) return -1;
    const std::string times = probed(files[0], "frame=best_effort_timestamp_time");
    return std::stod(times.substr(times.rfind('\n', times.size() - 2) + 1));
  }
  double received() const {
    const auto frames = program->events("frame");
    const auto at = [&](const Json::Value& frame) {
      return frame["tv"][0].asDouble() + frame["tv"][1].asDouble() / 1e6;
    };
    return at(frames.back()) - at(frames.front());
  }

  TemporaryFolder folder;
  std::unique_ptr<RetrieverProgram> program;
};

}  // namespace

TEST(Recording, AKillLeavesAFileThatPlaysUpToItsLastSecond) {
  RecordedReplay replay;
  ASSERT_TRUE(replay.program->awaitEvents("frame", 60)) << replay.program->output();
  EXPECT_EQ(replay.program->stop(SIGKILL), 128 + SIGKILL);
  EXPECT_GT(replay.played(), replay.received() - 1);
}

// The module leaves with exit() in the midst of things: the file is ended all the same.
TEST(Recording, AFailureOfTheModuleEndsTheFileToo) {
  RecordedReplay replay;
  ASSERT_TRUE(replay.program->awaitEvents("frame", 5)) << replay.program->output();
  std::filesystem::remove(replay.folder.path() + "/clip.h264");  // the next round cannot open it
  EXPECT_EQ(replay.program->wait(), 1);
  EXPECT_EQ(replay.program->states(), std::vector<std::string>{"STREAM_LOST UNK"});
  EXPECT_NEAR(replay.played(), replay.received(), 0.002);
}

// A worker ends the process while the host's thread receives and records.
TEST(Recording, AFailureOfAWorkerEndsTheFileUnderTheReceivingThread) {
  const HeldPort taken(SOCK_DGRAM);
  RecordedReplay replay({"METADATA_PORT=" + std::to_string(taken.port), "FRAMERATE=0"});
  EXPECT_EQ(replay.program->wait(), 1);
  EXPECT_THAT(replay.program->output(), testing::HasSubstr("Can't bind port"));
  EXPECT_THAT(replay.program->output(), testing::Not(testing::HasSubstr("Sanitizer")));
}
