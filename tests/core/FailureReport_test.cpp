#include "FailureReport.h"

#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::classifyFailure;
using Kelvane::StreamState;

TEST(FailureReport, TheWordsOfTheTextDecideTheState) {
  const struct {
    const char* text;
    bool matched;
    StreamState::ERRNO error;
  } cases[] = {
      // Holds two entries: the earlier one wins.
      {"CRT-5003 Error to read from socket. Seems server closed connection", true,
       StreamState::DEV_CLOSED_SOCKET},
      {"CRT-5001 Error to read from socket: Success", true, StreamState::NET_FAILURE},
      {"CRT-5006 socket() error: x", true, StreamState::NET_FAILURE},
      {"CRT-5007 gethostbyname() error: x", true, StreamState::NET_FAILURE},
      {"CRT-5008 inet_ntop() error: x", true, StreamState::NET_FAILURE},
      {"CRT-5009 Unable to connect() to 127.0.0.1", true, StreamState::NET_FAILURE},
      {"CRT-5010 Failed write into socket: x", true, StreamState::DEV_CLOSED_SOCKET},
      {"CRT-5010 Failed read from socket: x", true, StreamState::DEV_CLOSED_SOCKET},
      {"CRT-5010 Failed to read from socket: x", false, StreamState::UNK},
      {"Unsupported media format: x", false, StreamState::UNK},
      {"", false, StreamState::UNK},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(classifyFailure(c.text).matched, c.matched) << c.text;
    EXPECT_EQ(classifyFailure(c.text).error, c.error) << c.text;
  }
}

TEST(FailureReport, OnlyTheFirst255BytesAreSearched) {
  const std::string words = "socket() error";
  EXPECT_TRUE(classifyFailure((std::string(255 - words.size(), 'x') + words).c_str()).matched);
  EXPECT_FALSE(classifyFailure((std::string(256 - words.size(), 'x') + words).c_str()).matched);
}

TEST(FailureReport, EachVariantHasItsStateAndEnd) {
  TestHost host;
  EXPECT_FATAL_REPORT(FATAL_REPORT("CRT-5006 socket() error: %s", "x"), "FailureReport_test.cpp",
                      "STREAM_LOST NET_FAILURE");
  EXPECT_FATAL_REPORT(FATAL_REPORT("nothing known"), "nothing known", "STREAM_LOST UNK");
  EXPECT_FATAL_REPORT(SESSION_FATAL_REPORT("nothing known"), "nothing known", "UNKNOWN UNK");
  EXPECT_FATAL_EXIT(FATAL_EXIT("CRT-5024 %s is not implemented", "x"),
                    "CRT-5024 x is not implemented");
  ERROR_REPORT("CRT-5002 Could not read from socket: %s", "x");
  ERROR_REPORT("CRT-5001 Error to read from socket: %s", "x");
  EXPECT_THAT(host.states(), testing::ElementsAre("UNKNOWN UNK", "STREAM_LOST NET_FAILURE"));
}
