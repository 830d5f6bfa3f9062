#include <sys/socket.h>
#include <sys/un.h>

#include "AccessLog.h"
#include "Exceptions.h"
#include "Log4cppWrapper.h"
#include "Thread.h"
#include "UniqueFd.h"
#include "support/Subprocess.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::Cfg;
using Kelvane::StreamState;

TEST(Cfg, NumbersAreWholeOrNamed) {
  const TestHost host;
  Cfg::insert("GOOD", 42);
  Cfg::insert("REAL", 12.5);
  EXPECT_EQ(Cfg::i_value("GOOD"), 42);
  EXPECT_FLOAT_EQ(Cfg::f_value("REAL"), 12.5F);
  for (const char* text : {"", "80x", "x", "12.5", "99999999999"}) {
    Cfg::insert("BAD", text);
    try {
      Cfg::i_value("BAD");
      ADD_FAILURE() << text;
    } catch (const std::invalid_argument& failure) {
      EXPECT_THAT(failure.what(), testing::HasSubstr("BAD")) << text;
    }
  }
  EXPECT_THROW(Cfg::value("ABSENT"), std::invalid_argument);
}

TEST(StreamState, SendsADatagramAChange) {
  const TemporaryFolder folder;
  const std::string path = folder.path() + "/state";
  const Kelvane::UniqueFd watcher(socket(AF_UNIX, SOCK_DGRAM, 0));
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  path.copy(name.sun_path, sizeof name.sun_path - 1);
  ASSERT_EQ(bind(watcher.get(), reinterpret_cast<sockaddr*>(&name), sizeof name), 0);

  StreamState state;
  state.open(path, 7);
  const timeval when{12, 34};
  state.setState(StreamState::STREAM_LOST, StreamState::NET_FAILURE, &when);
  char text[256] = {};
  ASSERT_GT(recv(watcher.get(), text, sizeof text - 1, MSG_DONTWAIT), 0);
  EXPECT_STREQ(text, R"({"objid":7,"state":"STREAM_LOST","errno":"NET_FAILURE","time":[12,34]})");
  EXPECT_THROW(state.open(std::string(200, 'x'), 7), Kelvane::NetworkException);
}

TEST(Log, FallbackFormIsWrittenWhateverTheLevel) {
  TestHost host({{"DEVID", "cam1"}});
  testing::internal::CaptureStderr();
  LOG_DEBUG("text %d", 1);
  Kelvane::logFatal(Kelvane::FatalForm::plain, "a.cpp", 12, "plain");
  Kelvane::logFatal(Kelvane::FatalForm::streamFailure, "a.cpp", 12, "stream");
  const std::string stamp = "[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::MatchesRegex(stamp + " DEBUG - Host_test.cpp [0-9]+ text 1\n"
                                            "FATAL ERROR: a.cpp 12 \nplain\n"
                                            "FATAL ERROR: \\[cam1\\] a.cpp 12 stream\n"));
}

TEST(Log, CategoryFormNamesTheDeviceAndHonoursTheLevel) {
  TestHost host({{"DEVID", "cam1"}});
  testing::internal::CaptureStderr();
  Kelvane::Log4cppWrapper::init(log4cpp::Priority::WARN);
  int evaluated = 0;
  LOG_INFO("not written %d", ++evaluated);
  LOG_WARN("text %s", "%s");
  Cfg::clear();
  LOG_ERROR("no device");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::MatchesRegex(".* WARN - \\[cam1\\] Host_test.cpp [0-9]+ text %s\n"
                                    ".* ERROR - \\[\\] Host_test.cpp [0-9]+ no device\n"));
  EXPECT_EQ(evaluated, 0);
}

TEST(Thread, ExceptionOfAWorkerEndsTheProcessWithItsText) {
  class Worker : public Kelvane::Thread {
   public:
    ~Worker() override { join(); }
    void execute() override { Cfg::value("NO_SUCH_KEY"); }
  };
  const TestHost host;
  EXPECT_FATAL_EXIT(
      {
        Worker worker;
        worker.Kelvane::Thread::start();
        worker.join();
      },
      "NO_SUCH_KEY");
}
