#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <filesystem>

#include "UniqueFd.h"
#include "support/RetrieverProgram.h"

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
  std::string file() const {
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      if (entry.path().extension() == ".mkv") return entry.path();
    }
    return "no file";
  }
  // Time of the last picture that plays, in seconds of the file.
  double played() const {
    const std::string times = outputOf({"ffprobe", "-v", "error", "-of", "csv=p=0", "-show_entries",
                                        "frame=best_effort_timestamp_time", file()});
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

TEST(Recording, AStopEndsTheFileWithLengthAndAllFrames) {
  RecordedReplay replay;
  ASSERT_TRUE(replay.program->awaitEvents("frame", 30)) << replay.program->output();
  EXPECT_EQ(replay.program->stop(SIGTERM), 0) << replay.program->output();
  EXPECT_NEAR(replay.played(), replay.received(), 0.002);
  const double length = std::stod(outputOf({"ffprobe", "-v", "error", "-of", "csv=p=0",
                                            "-show_entries", "format=duration", replay.file()}));
  EXPECT_NEAR(length, replay.received(), 0.1);
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
  const Kelvane::UniqueFd taken(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in name{};
  name.sin_family = AF_INET;
  socklen_t length = sizeof name;
  auto* generic = reinterpret_cast<sockaddr*>(&name);
  ASSERT_EQ(bind(taken.get(), generic, length), 0);
  ASSERT_EQ(getsockname(taken.get(), generic, &length), 0);
  RecordedReplay replay({"METADATA_PORT=" + std::to_string(ntohs(name.sin_port)), "FRAMERATE=0"});
  EXPECT_EQ(replay.program->wait(), 1);
  EXPECT_THAT(replay.program->output(), testing::HasSubstr("Can't bind port"));
  EXPECT_THAT(replay.program->output(), testing::Not(testing::HasSubstr("Sanitizer")));
}
