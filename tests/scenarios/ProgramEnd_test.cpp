#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/RetrieverProgram.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// A replay of a pipe that never delivers: start() blocks where no flag is seen.
struct BlockedReplay {
  BlockedReplay() : pipe(folder.path() + "/clip.h264") {
    if (mkfifo(pipe.c_str(), 0600) != 0) throw std::runtime_error("mkfifo failed");
  }
  RetrieverProgram::Keys keys() const {
    return {{"PROTO", "FAKE"}, {"SOURCE", folder.path() + "/clip"}};
  }
  // Writing end; the program has taken a byte and waits for more.
  Kelvane::UniqueFd reached() const {
    Kelvane::UniqueFd writer;
    eventually([&] {
      writer = Kelvane::UniqueFd(open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
      return static_cast<bool>(writer);
    });
    EXPECT_EQ(write(writer.get(), "", 1), 1);
    EXPECT_TRUE(eventually([&] {
      int waiting = 0;
      return ioctl(writer.get(), FIONREAD, &waiting) == 0 && waiting == 0;
    }));
    return writer;
  }
  TemporaryFolder folder;
  std::string pipe;
};

}  // namespace

TEST(ProgramUsage, AnErrorIsOneLineAndStatusTwoAheadOfEverything) {
  const TemporaryFolder folder;
  const std::string config = folder.path() + "/camera";
  writeFile(config, "# a camera\nPROTO=FAKE\n\nno equals sign\n");
  const struct {
    std::vector<std::string> arguments;
    std::string text;
  } cases[] = {
      {{"-c", config}, config + ":4: "},
      {{"-c", folder.path() + "/none"}, folder.path() + "/none: "},
      {{"-c", folder.path()}, folder.path() + ": "},
      {{"--colour"}, "--colour"},
      {{"PROTO"}, "'PROTO'"},
      {{"--log-level", "LOUD"}, "LOUD"},
      {{"--duration", "soon"}, "soon"},
      {{"--trace", folder.path() + "/none/trace"}, folder.path() + "/none/trace"},
      {{"--state-socket", std::string(200, 'x')}, "too long"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> command{builtProgram("mretriever")};
    command.insert(command.end(), c.arguments.begin(), c.arguments.end());
    Subprocess program(command);
    EXPECT_EQ(program.wait(), 2) << c.text;
    EXPECT_THAT(program.output(), AllOf(testing::StartsWith("mretriever: "), HasSubstr(c.text)));
    EXPECT_EQ(program.output().find('\n'), program.output().size() - 1) << program.output();
  }
}

TEST(ProgramUsage, TheCommandLineWinsOverTheFile) {
  const TemporaryFolder folder;
  const std::string config = folder.path() + "/camera";
  writeFile(config, " PROTO =\tTEST \r\nCAMERAMODEL=x\nDEVID=a=b \n");
  Subprocess program({builtProgram("mretriever"), "-c", config, "PROTO=none"});
  EXPECT_EQ(program.wait(), 1);
  EXPECT_THAT(program.output(), HasSubstr("[a=b]"));
  EXPECT_THAT(program.output(), HasSubstr("CRT-5024 none is not implemented"));
}

TEST(ProgramEnd, FailuresLeaveWithStatusTextAndState) {
  const std::string none = "/nonexistent/clip";
  const struct {
    RetrieverProgram::Keys keys;
    std::vector<std::string> options;
    std::string text;
    std::vector<std::string> states;
  } cases[] = {
      {{{"PROTO", "FAKE"}, {"SOURCE", none}},
       {},
       "Could not open file /nonexistent/clip.h264: No such file or directory",
       {"STREAM_LOST UNK"}},
      {{{"PROTO", "FAKE"}}, {}, "Configuration key SOURCE is absent", {}},
      {{{"PROTO", "FAKE"}}, {"--no-log-category"}, " ERROR - Program.cpp ", {}},
      {{{"PROTO", "gopher"}}, {}, "CRT-5024 gopher is not implemented", {}},
      {{{"PROTO", "FAKE"}, {"SOURCE", none}, {"MEDIA_FORMAT", "vhs"}},
       {"--no-log-category"},
       "FATAL ERROR: [",
       {"STREAM_LOST UNK"}},
  };
  for (const auto& c : cases) {
    RetrieverProgram program(c.keys, c.options);
    EXPECT_EQ(program.wait(), 1) << c.text;
    EXPECT_THAT(program.output(), HasSubstr(c.text));
    EXPECT_EQ(program.states(), c.states) << c.text;
    EXPECT_THAT(program.events("end"), IsEmpty()) << c.text;
  }
}

TEST(ProgramEnd, TheStateSocketGetsTheState) {
  const TemporaryFolder folder;
  const std::string path = folder.path() + "/state";
  const auto watcher = unixSocket(path, true);
  RetrieverProgram program({{"PROTO", "FAKE"}, {"SOURCE", "/nonexistent/x"}, {"OBJID", "4711"}},
                           {"--state-socket", path});
  EXPECT_EQ(program.wait(), 1);
  char text[256] = "";
  ASSERT_GT(recv(watcher.get(), text, sizeof text - 1, MSG_DONTWAIT), 0);
  EXPECT_THAT(text, testing::MatchesRegex("\\{\"objid\":4711,\"state\":\"STREAM_LOST\","
                                          "\"errno\":\"UNK\",\"time\":\\[[0-9]+,[0-9]+\\]\\}"));
}

TEST(ProgramEnd, ABlockedReadIsLeftBehindAfterTheGrace) {
  const BlockedReplay replay;
  RetrieverProgram program(replay.keys(), {"--stop-grace", "0.2"});
  const auto writer = replay.reached();
  ASSERT_TRUE(static_cast<bool>(writer));
  EXPECT_EQ(program.stop(SIGTERM), 0);
  EXPECT_THAT(program.output(), AllOf(HasSubstr("WARN"), HasSubstr("0.2 s")));
  EXPECT_EQ(program.events("stop").front()["reason"], "signal");
  EXPECT_THAT(program.events("end"), IsEmpty());
}

TEST(ProgramEnd, ASecondSignalEndsAtOnce) {
  const BlockedReplay replay;
  RetrieverProgram program(replay.keys(), {"--stop-grace", "1000"});
  const auto writer = replay.reached();
  ASSERT_TRUE(static_cast<bool>(writer));
  program.process().signal(SIGINT);
  ASSERT_TRUE(program.awaitEvents("stop", 1));
  EXPECT_EQ(program.stop(SIGTERM), 128 + SIGTERM);
}

TEST(ServiceManager, HearsOfReadinessAndOfLifeOnlyWhileFramesCome) {
  const BlockedReplay replay;
  const std::string path = replay.folder.path() + "/notify";
  const auto manager = unixSocket(path, true);
  std::string heard;
  const auto hears = [&](const std::string& text, std::chrono::milliseconds patience) {
    return eventually(
        [&] {
          char block[256];
          ssize_t got = 0;
          while ((got = recv(manager.get(), block, sizeof block, MSG_DONTWAIT)) > 0) {
            heard.append(block, static_cast<std::size_t>(got)).append("\n");
          }
          return heard.find(text) != std::string::npos;
        },
        patience);
  };

  setenv("NOTIFY_SOCKET", path.c_str(), 1);
  setenv("WATCHDOG_USEC", "400000", 1);
  RetrieverProgram program(replay.keys());
  unsetenv("NOTIFY_SOCKET");
  unsetenv("WATCHDOG_USEC");
  EXPECT_TRUE(hears("READY=1", kPatience));
  EXPECT_TRUE(hears("WATCHDOG=1", kPatience)) << "the start counts as life";
  const Kelvane::UniqueFd writer = replay.reached();
  heard.clear();
  EXPECT_FALSE(hears("WATCHDOG=1", std::chrono::milliseconds(600))) << "nothing has come";
  const std::string frames("\0\0\0\1\x67\x42\0\0\1\x65\x88\0\0\1\x65\x88\0\0\1\x65\x88", 22);
  ASSERT_EQ(write(writer.get(), frames.data(), frames.size()), 22);
  ASSERT_TRUE(eventually([&] { return hears("", kPatience); }));
  program.stop(SIGTERM);
  EXPECT_TRUE(hears("STOPPING=1", kPatience));
}
