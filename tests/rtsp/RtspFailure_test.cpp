#include "RtspSupport.h"

using namespace testsupport;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

struct Failure {
  void (*arrange)(ScriptedCamera& camera);
  int status;
  const char* text;   // empty: the process says nothing of a failure
  const char* state;  // empty: none is set
};

ScriptedCamera::Answer refusal(const char* status) {
  return [status](const RtspRequest& request) { return ScriptedCamera::reply(request, status); };
}

const Failure kFailures[] = {
    {[](ScriptedCamera& c) { c.answers("DESCRIBE", refusal("404 Not Found")); }, 0,
     "/live\": 404 Not Found", "UNKNOWN UNK"},
    {[](ScriptedCamera& c) {
       c.answers("DESCRIBE", [](const RtspRequest& request) {
         return ScriptedCamera::reply(request, "401 Unauthorized",
                                      "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n");
       });
     },
     0, "CRT-5015 Failed to get a SDP description from URL \"rtsp://127.0.0.1:", "UNKNOWN UNK"},
    {[](ScriptedCamera& c) { c.closesAt("DESCRIBE"); }, 0,
     "CRT-5015 Failed to get a SDP description from URL", "UNKNOWN UNK"},
    {[](ScriptedCamera& c) {
       c.describes(kH264Lines + std::string("a=x:") + std::string(3000000, 'y') + "\r\n");
     },
     0, "CRT-5015 Failed to get a SDP description from URL", "UNKNOWN UNK"},
    {[](ScriptedCamera& c) {
       c.answers("DESCRIBE", [](const RtspRequest& request) {
         return ScriptedCamera::reply(request, "200 OK", "", "v=0\r\nthis is no description\r\n");
       });
     },
     0,
     "CRT-5016 Failed to create a MediaSession object from the SDP description: ", "UNKNOWN UNK"},
    {[](ScriptedCamera& c) { c.describes(""); }, 0,
     "CRT-5017 This session has no media subsessions (i.e., \"m=\" lines)", "UNKNOWN UNK"},
    {[](ScriptedCamera& c) {
       c.describes("m=application 0 RTP/AVP 96\r\na=rtpmap:96 ONVIF/90000\r\na=control:track1\r\n");
     },
     0, "returning a SDP description", ""},
    {[](ScriptedCamera& c) {
       c.describes("m=video 0 RTP/AVP 96\r\na=rtpmap:96 NOTHING/90000\r\na=control:track1\r\n");
     },
     1, "CRT-5019 Unable to create receiver for \"video/NOTHING\" subsession: ", "STREAM_LOST UNK"},
    {[](ScriptedCamera& c) {
       c.describes("m=video 0 RTP/AVP 96\r\na=rtpmap:96 H265/90000\r\na=control:track1\r\n");
     },
     1, "CRT-5022 Codec: \"H265\" is not implemented", "STREAM_LOST UNK"},
    {[](ScriptedCamera& c) { c.describes("m=audio 0 RTP/AVP 0\r\na=control:track1\r\n"); }, 0,
     "AUDIO is disabled", ""},
    {[](ScriptedCamera& c) { c.answers("SETUP", refusal("453 Not Enough Bandwidth")); }, 1,
     "CRT-5023 Failed to setup \"video/H264\" subsession: 453 Not Enough Bandwidth",
     "STREAM_LOST UNK"},
    {[](ScriptedCamera& c) { c.closesAt("SETUP"); }, 1,
     "CRT-5023 Failed to setup \"video/H264\" subsession: ", "STREAM_LOST UNK"},
    {[](ScriptedCamera& c) { c.answers("PLAY", refusal("500 Internal Error")); }, 0,
     "CRT-5018 Failed to start playing session: 500 Internal Error", "UNKNOWN UNK"},
    {[](ScriptedCamera& c) { c.closesAt("PLAY"); }, 0,
     "CRT-5018 Failed to start playing session: ", "UNKNOWN UNK"},
    {[](ScriptedCamera& c) {
       c.afterPlay([](PeerConnection& connection) {
         connection.write(interleaved(0, rtp(1,
                                             "\x65"
                                             "frame")));
         connection.close();
       });
     },
     0, "CRT-5003 Error to read from socket. Seems server closed connection",
     "STREAM_LOST DEV_CLOSED_SOCKET"},
    {[](ScriptedCamera& c) {
       c.afterPlay([](PeerConnection& connection) {
         connection.write(interleaved(0, rtp(1, std::string(1000, 'x'))).substr(0, 300));
         connection.reset();
       });
     },
     0, "CRT-5003 Error to read from socket. Seems server closed connection",
     "STREAM_LOST DEV_CLOSED_SOCKET"},
};

}  // namespace

TEST(RtspFailure, HasItsTextStateAndStatus) {
  for (const Failure& c : kFailures) {
    SCOPED_TRACE(c.text);
    ScriptedCamera camera;
    c.arrange(camera);
    TestHost host(camera.keys());
    testing::Matcher<const std::string&> state = Not(HasSubstr("state "));
    if (*c.state != '\0') state = HasSubstr(std::string("state ") + c.state);
    EXPECT_LEAVES(receive(host), c.status, AllOf(HasSubstr(c.text), state));
  }
}

TEST(RtspFailure, AtTheStart) {
  const TestHost::Keys address{{"PROTO", "RTSP"}, {"DEVIP", "127.0.0.1"}};
  {
    TestHost host(address);
    EXPECT_FATAL_REPORT(receive(host),
                        "Could not construct URL. Required param absent or invalid (",
                        "STREAM_LOST UNK");
  }
  TestHost::Keys keys{{"RTSP_URL", "/live"},
                      {"USRNAME", ""},
                      {"PASSWD", ""},
                      {"RTSP_PORT", std::to_string(freeTcpPort())}};
  keys.insert(address.begin(), address.end());
  {
    TestHost host(keys);
    EXPECT_LEAVES(
        receive(host), 0,
        AllOf(HasSubstr("CRT-5015 Failed to get a SDP description from URL \"rtsp://127.0.0.1:"),
              HasSubstr("Connection refused"), HasSubstr("state UNKNOWN UNK")));
  }
  keys.erase("RTSP_PORT");
  keys["DEVIP"] = ownLoopbackAddress();
  TestHost host(keys);
  EXPECT_LEAVES(receive(host), 0, HasSubstr("rtsp://" + keys["DEVIP"] + ":554/live\": "));
}
