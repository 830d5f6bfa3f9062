#include "RtspSupport.h"

using namespace testsupport;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

CameraScript describing(const std::string& mediaLines) {
  CameraScript script;
  script.mediaLines = mediaLines;
  return script;
}
CameraScript answering(const char* method, const char* status, const char* headers = "",
                       const char* body = "") {
  CameraScript script;
  script.answers[method] = [=](const RtspRequest& request) {
    return reply(request, status, headers, body);
  };
  return script;
}
CameraScript closingAt(const char* method, const std::string& lastWords = "") {
  CameraScript script;
  script.closesAt = method;
  script.lastWords = lastWords;
  return script;
}
// Sends so much of a packet and leaves.
CameraScript leaving(std::size_t bytes, void (PeerConnection::*leave)()) {
  CameraScript script;
  script.afterPlay = [=](PeerConnection& connection) {
    connection.write(interleaved(0, rtp(1, std::string(1000, 'x'))).substr(0, bytes));
    (connection.*leave)();
  };
  return script;
}
std::string codec(const std::string& medium, const std::string& name) {
  return "m=" + medium + " 0 RTP/AVP 96\r\na=rtpmap:96 " + name + "/90000\r\na=control:track1\r\n";
}
void receiveFrom(const CameraScript& script) {
  ScriptedCamera camera(script);
  TestHost host(camera.keys());
  receive(host);
}

}  // namespace

TEST(RtspFailure, HasItsTextStateAndStatus) {
  const std::string noDescription = "CRT-5015 Failed to get a SDP description from URL \"rtsp://";
  const std::string noSetup = "CRT-5023 Failed to setup \"video/H264\" subsession: ";
  const std::string noPlay = "CRT-5018 Failed to start playing session: ";
  const std::string closed = "CRT-5003 Error to read from socket. Seems server closed connection";
  const std::string half = interleaved(0, rtp(1, std::string(1000, 'x'))).substr(0, 300);
  const std::string unknown = "UNKNOWN UNK";
  const std::string lost = "STREAM_LOST UNK";
  const std::string gone = "STREAM_LOST DEV_CLOSED_SOCKET";
  const struct {
    CameraScript script;
    int status;
    std::string text;
    std::string state;  // empty: none is set
  } cases[] = {
      {answering("DESCRIBE", "404 Not Found"), 0, "/live\": 404 Not Found", unknown},
      {answering("DESCRIBE", "401 Unauthorized",
                 "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n"),
       0, noDescription, unknown},
      {closingAt("DESCRIBE"), 0, noDescription, unknown},
      {answering("DESCRIBE", "200 OK"), 0, noDescription, unknown},
      {describing(kH264Lines + ("a=x:" + std::string(3000000, 'y')) + "\r\n"), 0, noDescription,
       unknown},
      {answering("DESCRIBE", "200 OK", "", "v=0\r\nthis is no description\r\n"), 0,
       "CRT-5016 Failed to create a MediaSession object from the SDP description: ", unknown},
      {describing(""), 0, "CRT-5017 This session has no media subsessions (i.e., \"m=\" lines)",
       unknown},
      {describing(codec("application", "ONVIF")), 0, "returning a SDP description", ""},
      {describing(codec("video", "NOTHING")), 1,
       "CRT-5019 Unable to create receiver for \"video/NOTHING\" subsession: ", lost},
      {describing(codec("video", "H265")), 1, "CRT-5022 Codec: \"H265\" is not implemented", lost},
      {describing(codec("audio", "PCMU")), 0, "AUDIO is disabled", ""},
      {answering("SETUP", "453 Not Enough Bandwidth"), 1, noSetup + "453 Not Enough Bandwidth",
       lost},
      {closingAt("SETUP"), 1, noSetup, lost},
      {answering("PLAY", "500 Internal Error"), 0, noPlay + "500 Internal Error", unknown},
      {closingAt("PLAY"), 0, noPlay, unknown},
      {closingAt("PLAY", half), 0, closed, gone},
      {leaving(2000, &PeerConnection::close), 0, closed, gone},
      {leaving(300, &PeerConnection::reset), 0, closed, gone},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    testing::Matcher<const std::string&> state = Not(HasSubstr("state "));
    if (!c.state.empty()) state = HasSubstr("state " + c.state);
    EXPECT_LEAVES(receiveFrom(c.script), c.status, AllOf(HasSubstr(c.text), state));
  }
}

TEST(RtspFailure, AtTheStart) {
  const auto receiveFrom = [](const TestHost::Keys& keys) {
    TestHost host(keys);
    receive(host);
  };
  EXPECT_FATAL_REPORT(receiveFrom({{"PROTO", "RTSP"}, {"DEVIP", "127.0.0.1"}}),
                      "Could not construct URL. Required param absent or invalid (",
                      "STREAM_LOST UNK");
  auto keys = rtspKeys(std::to_string(freeTcpPort()), "on");
  EXPECT_LEAVES(
      receiveFrom(keys), 0,
      AllOf(HasSubstr("CRT-5015 Failed to get a SDP description from URL \"rtsp://127.0.0.1:"),
            HasSubstr("Connection refused"), HasSubstr("state UNKNOWN UNK")));
  keys.erase("RTSP_PORT");
  keys["DEVIP"] = ownLoopbackAddress();
  EXPECT_LEAVES(receiveFrom(keys), 0, HasSubstr("rtsp://" + keys["DEVIP"] + ":554/live\": "));
}
