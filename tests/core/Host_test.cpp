#include <unistd.h>

#include "AccessLog.h"
#include "Exceptions.h"
#include "Log4cppWrapper.h"
#include "Thread.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::Cfg;

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

// In a process of its own: the category stays once it is there.
TEST(Log, CategoryFormNamesTheDeviceAndHonoursTheLevel) {
  TestHost host({{"DEVID", "cam1"}});
  const auto log = [] {
    Kelvane::Log4cppWrapper::init(log4cpp::Priority::WARN);
    int evaluated = 0;
    LOG_INFO("not written %d", ++evaluated);
    LOG_WARN("text %s", "%s");
    Cfg::clear();
    LOG_ERROR("no device");
    _exit(evaluated);
  };
  EXPECT_LEAVES(log(), 0,
                testing::MatchesRegex(".* WARN - \\[cam1\\] Host_test.cpp [0-9]+ text %s\n"
                                      ".* ERROR - \\[\\] Host_test.cpp [0-9]+ no device\n"));
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
