#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "PelcoMediaProducerImpl.h"
#include "support/RetrieverProgram.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::Cfg;
using Kelvane::PelcoMediaProducerImpl;
using testing::HasSubstr;
using testing::Not;

namespace {

// A simulated camera prints each operation with its session.
struct Camera : SimulatedDevice {
  explicit Camera(std::vector<std::string> options = {})
      : SimulatedDevice([&options] {
          options.insert(options.begin(), {"pelco", "--port", "0"});
          return options;
        }()) {}
  // False when `text` was not printed that often in time.
  bool awaitTimes(const std::string& text, int times) {
    return eventually([&] { return occurrences(output(), text) >= times; });
  }
};

TestHost::Keys keysFor(const Camera& camera, const TestHost::Keys& more = {}) {
  TestHost::Keys keys = more;
  keys.insert({{"PROTO", "HTTP"},
               {"CAMERAMODEL", "Pelco"},
               {"MEDIA_FORMAT", "h264"},
               {"MODELID", "IXE20DN"},
               {"DEVIP", "127.0.0.1"},
               {"PELCO_SOAP_PORT", camera.port},
               {"USRNAME", "admin"},
               {"PASSWD", "secret"}});
  return keys;
}

// A host with its producer, which refreshes every 100 ms.
struct Session {
  explicit Session(const TestHost::Keys& keys) : host(keys) {
    PelcoMediaProducerImpl::KeepAliveHolder::waitsPerRefresh = 4;
    producer = std::make_unique<PelcoMediaProducerImpl>(host.audio(), host.video());
  }
  // Stops the stream and deletes the producer, on this thread like the program.
  void end() {
    host.stop();
    EXPECT_TRUE(host.awaitEnd());
    EXPECT_TRUE(host.result());
    producer.reset();
  }
  TestHost host;
  std::unique_ptr<PelcoMediaProducerImpl> producer;
};

// start() of a fresh producer, for the failures that end it.
void startNew(const TestHost::Keys& keys) {
  Session session(keys);
  session.producer->start();
}

TEST(PelcoProducer, ASessionIsRefreshedWhileVideoArrivesAndDisconnected) {
  const struct {
    const char *auth, *format, *model, *payload;
    std::string head;  // of the first frame
  } cases[] = {
      {"none", "h264", "IXE20DN", "97", "\x67"},
      {"basic", "mpeg4", "NET5301T-TXB", "96", std::string("\0\0\1", 3)},
      {"digest", "h264", "x-IM10C10-y", "96", "\x67"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.auth);
    Camera camera(
        {"--auth", c.auth, "--format", c.format, "--payload", c.payload, "--session", "2"});
    Session session(keysFor(camera, {{"MEDIA_FORMAT", c.format}, {"MODELID", c.model}}));
    session.host.run(*session.producer);
    ASSERT_TRUE(session.host.video()->awaitFrames(20)) << camera.output();
    EXPECT_THAT(session.host.video()->data().front(), testing::StartsWith(c.head));
    // For longer than the camera keeps a session that nobody refreshes.
    EXPECT_TRUE(camera.awaitTimes("RefreshSession 17\n", 22)) << camera.output();
    EXPECT_THAT(camera.output(), Not(HasSubstr("expired")));
    EXPECT_THAT(camera.output(), Not(HasSubstr("Disconnect")));
    session.end();
    EXPECT_TRUE(camera.process.awaitOutput("Disconnect 17\n"));
    EXPECT_THAT(session.host.states(), testing::IsEmpty());
    // An even port, and one call of each.
    EXPECT_THAT(camera.output(), testing::ContainsRegex("transport rtp://[^\n]*[02468]\n"));
    EXPECT_THAT(camera.output(), testing::ContainsRegex("Query 0\n.*Connect 0\n.*Play 17\n"));
  }
}

TEST(PelcoProducer, ARefusedRefreshDoesNotEndTheStream) {
  Camera camera({"--fault", "RefreshSession"});
  Session session(keysFor(camera));
  session.host.run(*session.producer);
  EXPECT_TRUE(camera.awaitTimes("RefreshSession 17\n", 3)) << camera.output();
  const std::size_t count = session.host.video()->count();
  EXPECT_TRUE(session.host.video()->awaitFrames(count + 5));
  session.end();
}

// Deletes the producer once the camera has dropped its session.
void outliveTheSession(Camera& camera) {
  Session session(keysFor(camera));
  PelcoMediaProducerImpl::KeepAliveHolder::waitsPerRefresh = 1000;
  std::thread host([&] { session.producer->start(); });
  if (!camera.process.awaitOutput("session 17 expired")) _exit(2);
  if (camera.output().find("RefreshSession") != std::string::npos) _exit(3);
  session.host.stop();
  host.join();
  session.producer.reset();
}

TEST(PelcoProducer, ASessionThatNobodyRefreshedCannotBeDisconnected) {
  Camera camera({"--session", "0.5"});
  EXPECT_FATAL_REPORT(outliveTheSession(camera),
                      "VideoOutput_Disconnect() failed: SOAP fault SOAP-ENV:Client: UPnPError "
                      "(701 No Such Session)",
                      "UNKNOWN UNK");
}

TEST(PelcoProducer, EveryFailureOfTheConversationEndsTheProcess) {
  const struct {
    std::vector<std::string> options;
    const char *text, *state;
  } cases[] = {
      {{"--fault", "Query"},
       "VideoOutput_Query() failed: SOAP fault SOAP-ENV:Client: UPnPError (501 Action Failed)",
       "UNKNOWN UNK"},
      {{"--hang-up", "Query"},
       "VideoOutput_Query() failed: Server closed connection without an answer",
       "STREAM_LOST DEV_CLOSED_SOCKET"},
      {{"--no-streams"}, "No streams found", "UNKNOWN UNK"},
      {{"--hostile", "Connect", "--hostile-kind", "flood"},
       "VideoOutput_Connect() failed: Answer of more than",
       "UNKNOWN UNK"},
      {{"--no-session-id"},
       "Could not set sessionId: sessionId is being set to NULL, but it is not a nullable element",
       "UNKNOWN UNK"},
      {{"--hostile", "Play"}, "StreamControl_Play() failed: Invalid XML", "UNKNOWN UNK"},
      {{"--auth", "digest", "--password", "other"},
       "VideoOutput_Query() failed: HTTP status 401: login refused",
       "UNKNOWN UNK"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const Camera camera(c.options);
    EXPECT_FATAL_REPORT(startNew(keysFor(camera)), c.text, c.state);
  }
}

TEST(PelcoProducer, ACameraThatIsNotThereIsANetworkFailure) {
  Camera camera;
  TestHost::Keys keys = keysFor(camera);
  keys["PELCO_SOAP_PORT"] = std::to_string(freeTcpPort());
  EXPECT_FATAL_REPORT(startNew(keys), "VideoOutput_Query() failed: Unable to connect() to http://",
                      "STREAM_LOST NET_FAILURE");
  keys["MEDIA_FORMAT"] = "mjpg";
  EXPECT_FATAL_REPORT(startNew(keys), "Media format is not supported (mjpg)", "UNKNOWN UNK");
}

TEST(PelcoProducer, ADeviceWithoutASchemeIsTriedWithBasic) {
  Camera camera({"--auth", "basic", "--nameless-auth"});
  Session session(keysFor(camera));
  testing::internal::CaptureStderr();
  session.host.run(*session.producer);
  EXPECT_TRUE(session.host.video()->awaitFrames(3)) << camera.output();
  session.end();
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("http auth is (null). Using \"Basic\" auth type"));
}

}  // namespace
