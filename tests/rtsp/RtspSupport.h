#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "RTSPMediaProducerImpl.h"
#include "support/RetrieverProgram.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

namespace testsupport {

struct RtspRequest {
  std::string method;
  std::string text;  // the whole request
  std::string header(const std::string& name) const;
};

// Payload type 96, no parameter sets.
inline constexpr char kH264Lines[] =
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:track1\r\n";

// What a scripted camera does; without further words it describes one H.264
// stream, accepts interleaved or UDP transport and plays.
struct CameraScript {
  // What goes back; nothing for a camera that is mute.
  using Answer = std::function<std::string(const RtspRequest&)>;

  std::string mediaLines = kH264Lines;  // of the description
  std::map<std::string, Answer> answers;
  std::string sessionWords;  // behind the session's number in the answer to SETUP
  std::string closesAt;      // a method
  std::string lastWords;     // ahead of that
  // Runs on the camera's thread behind the answer to PLAY.
  std::function<void(PeerConnection&)> afterPlay;
};

// Follows its script over one TCP connection at a time.
class ScriptedCamera {
 public:
  explicit ScriptedCamera(CameraScript script = {});
  ~ScriptedCamera();
  ScriptedCamera(const ScriptedCamera&) = delete;
  ScriptedCamera& operator=(const ScriptedCamera&) = delete;

  TestHost::Keys keys(const std::string& overTcp = "on") const;
  std::string url() const;
  std::vector<RtspRequest> requests();
  std::vector<std::string> methods();
  bool awaitRequest(const std::string& method);

 private:
  void serve(PeerConnection connection);
  std::string answerTo(const RtspRequest& request) const;

  const CameraScript script_;
  TcpPeer peer_;
  std::mutex mutex_;
  std::vector<RtspRequest> requests_;
  std::atomic<bool> done_{false};
  std::thread thread_;
};

std::string reply(const RtspRequest& request, const std::string& status = "200 OK",
                  const std::string& headers = "", const std::string& body = "");
std::string rtcpBye(unsigned ssrc);
std::string interleaved(int channel, const std::string& packet);

TestHost::Keys rtspKeys(const std::string& port, const std::string& overTcp);
// For a simulated camera, with a small picture; ready when it prints kReady.
std::vector<std::string> camsimRtsp(const std::vector<std::string>& options);
inline constexpr char kReady[] = "/live\n";

// The producer on a thread of the host's, stopped by the destructor.
struct Receiver {
  explicit Receiver(const TestHost::Keys& keys, Kelvane::APP_MODE_NAME mode = Kelvane::APP_NV);
  ~Receiver();
  // False when start() does not return in time.
  bool stop();

  TestHost host;
  Kelvane::RTSPMediaProducerImpl producer;
};

// The whole of start() on the calling thread, for death tests.
void receive(TestHost& host);

}  // namespace testsupport
