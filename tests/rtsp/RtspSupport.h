#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "RTSPMediaProducerImpl.h"
#include "support/Subprocess.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

namespace testsupport {

struct RtspRequest {
  std::string method;
  std::string text;  // the whole request
  std::string header(const std::string& name) const;
};

// A camera that answers as the test says, over one TCP connection at a time.
// Without further words it describes one H.264 stream, accepts interleaved or
// UDP transport and plays.
class ScriptedCamera {
 public:
  // What goes back; nothing for a camera that is mute.
  using Answer = std::function<std::string(const RtspRequest&)>;
  using AfterPlay = std::function<void(PeerConnection&)>;

  ScriptedCamera();
  ~ScriptedCamera();
  ScriptedCamera(const ScriptedCamera&) = delete;
  ScriptedCamera& operator=(const ScriptedCamera&) = delete;

  // Before the producer starts.
  void describes(const std::string& mediaLines);
  void answers(const std::string& method, Answer answer);
  void closesAt(const std::string& method);
  // Runs on the camera's thread behind the answer to PLAY.
  void afterPlay(AfterPlay call);

  TestHost::Keys keys() const;
  std::string url() const;
  std::vector<RtspRequest> requests();
  std::vector<std::string> methods();
  bool awaitRequest(const std::string& method);

  static std::string reply(const RtspRequest& request, const std::string& status = "200 OK",
                           const std::string& headers = "", const std::string& body = "");

 private:
  struct Script {
    std::string mediaLines;
    std::map<std::string, Answer> answers;
    std::string closesAt;
    AfterPlay afterPlay;
  };

  void serve();
  void serveConnection(PeerConnection connection, const Script& script);
  std::string answerTo(const RtspRequest& request, const Script& script) const;

  TcpPeer peer_;
  std::mutex mutex_;
  Script script_;
  std::vector<RtspRequest> requests_;
  std::atomic<bool> done_{false};
  std::thread thread_;
};

extern const char kH264Lines[];  // payload type 96, no parameter sets

std::string rtcpBye(unsigned ssrc);
std::string interleaved(int channel, const std::string& packet);

// A camera in a process of its own.
struct CameraProcess {
  explicit CameraProcess(const std::vector<std::string>& command);
  TestHost::Keys keys(const std::string& overTcp) const;

  Subprocess process;
  int port = 0;
};
std::vector<std::string> camsimRtsp(const std::vector<std::string>& options);

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
