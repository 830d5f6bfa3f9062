#include "RtspSupport.h"

#include <cstring>

namespace testsupport {

const char kH264Lines[] = "m=video 0 RTP/AVP 96\r\na=rtpmap:96 H264/90000\r\na=control:track1\r\n";

std::string RtspRequest::header(const std::string& name) const {
  const std::size_t at = text.find("\r\n" + name + ": ");
  if (at == std::string::npos) return "";
  const std::size_t begin = at + name.size() + 4;
  return text.substr(begin, text.find("\r\n", begin) - begin);
}

ScriptedCamera::ScriptedCamera() : script_{kH264Lines, {}, "", nullptr} {
  thread_ = std::thread([this] { serve(); });
}

ScriptedCamera::~ScriptedCamera() {
  done_ = true;
  // Wakes the accept().
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(peer_.port()));
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to);
  thread_.join();
  close(fd);
}

void ScriptedCamera::describes(const std::string& mediaLines) {
  std::lock_guard<std::mutex> held(mutex_);
  script_.mediaLines = mediaLines;
}

void ScriptedCamera::answers(const std::string& method, Answer answer) {
  std::lock_guard<std::mutex> held(mutex_);
  script_.answers[method] = std::move(answer);
}

void ScriptedCamera::closesAt(const std::string& method) {
  std::lock_guard<std::mutex> held(mutex_);
  script_.closesAt = method;
}

void ScriptedCamera::afterPlay(AfterPlay call) {
  std::lock_guard<std::mutex> held(mutex_);
  script_.afterPlay = std::move(call);
}

TestHost::Keys ScriptedCamera::keys() const {
  return {{"PROTO", "RTSP"},       {"DEVIP", "127.0.0.1"},
          {"RTSP_URL", "/live"},   {"RTSP_PORT", std::to_string(peer_.port())},
          {"USRNAME", "operator"}, {"PASSWD", "secret"},
          {"RTP_OVER_TCP", "on"}};
}

std::string ScriptedCamera::url() const {
  return "rtsp://127.0.0.1:" + std::to_string(peer_.port()) + "/live";
}

std::vector<RtspRequest> ScriptedCamera::requests() {
  std::lock_guard<std::mutex> held(mutex_);
  return requests_;
}

std::vector<std::string> ScriptedCamera::methods() {
  std::vector<std::string> names;
  for (const RtspRequest& request : requests()) names.push_back(request.method);
  return names;
}

bool ScriptedCamera::awaitRequest(const std::string& method) {
  return eventually([&] {
    for (const std::string& name : methods()) {
      if (name == method) return true;
    }
    return false;
  });
}

std::string ScriptedCamera::reply(const RtspRequest& request, const std::string& status,
                                  const std::string& headers, const std::string& body) {
  std::string text =
      "RTSP/1.0 " + status + "\r\nCSeq: " + request.header("CSeq") + "\r\n" + headers;
  if (!body.empty()) {
    text +=
        "Content-Type: application/sdp\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return text + "\r\n" + body;
}

std::string ScriptedCamera::answerTo(const RtspRequest& request, const Script& script) const {
  const auto scripted = script.answers.find(request.method);
  if (scripted != script.answers.end()) return scripted->second(request);
  if (request.method == "DESCRIBE") {
    return reply(request, "200 OK", "Content-Base: " + url() + "/\r\n",
                 "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=camera\r\nt=0 0\r\n" + script.mediaLines);
  }
  if (request.method == "SETUP") {
    std::string transport = request.header("Transport");
    if (transport.find("TCP") == std::string::npos) transport += ";server_port=40000-40001";
    return reply(request, "200 OK", "Session: 12345678\r\nTransport: " + transport + "\r\n");
  }
  return reply(request);
}

void ScriptedCamera::serve() {
  for (;;) {
    PeerConnection connection = peer_.accept();
    if (done_) return;
    if (!connection.open()) continue;
    std::unique_lock<std::mutex> held(mutex_);
    const Script script = script_;
    held.unlock();
    serveConnection(std::move(connection), script);
  }
}

void ScriptedCamera::serveConnection(PeerConnection connection, const Script& script) {
  for (;;) {
    // Receiver reports of the client come in between, in frames of their own.
    std::string text;
    while (text.size() < 4 || text.compare(text.size() - 4, 4, "\r\n\r\n") != 0) {
      const std::string next = connection.read(1);
      if (next.empty() || done_) return;
      if (text.empty() && next == "$") {
        const std::string head = connection.read(3);
        connection.read(static_cast<unsigned char>(head[1]) * 256U +
                        static_cast<unsigned char>(head[2]));
      } else {
        text += next;
      }
    }
    const RtspRequest request{text.substr(0, text.find(' ')), text};
    {
      std::lock_guard<std::mutex> held(mutex_);
      requests_.push_back(request);
    }
    if (request.method == script.closesAt) return;
    connection.write(answerTo(request, script));
    if (request.method == "PLAY" && script.afterPlay) script.afterPlay(connection);
    if (!connection.open()) return;
  }
}

// An empty receiver report ahead, as a compound packet has to begin.
std::string rtcpBye(unsigned ssrc) {
  const auto id = static_cast<int>(ssrc);
  return bytes({0x80, 201, 0, 1, 0, 0, 0, id, 0x81, 203, 0, 1, 0, 0, 0, id});
}

std::string interleaved(int channel, const std::string& packet) {
  return bytes({'$', channel, static_cast<int>(packet.size() >> 8),
                static_cast<int>(packet.size() & 255)}) +
         packet;
}

CameraProcess::CameraProcess(const std::vector<std::string>& command) : process(command) {
  if (!eventually([this] { return process.output().find("/live\n") != std::string::npos; })) {
    throw std::runtime_error("the camera did not start: " + process.output());
  }
  port = std::stoi(process.output().substr(strlen("rtsp://127.0.0.1:")));
}

TestHost::Keys CameraProcess::keys(const std::string& overTcp) const {
  return {{"PROTO", "RTSP"},        {"DEVIP", "127.0.0.1"},  {"RTSP_PORT", std::to_string(port)},
          {"RTSP_URL", "/live"},    {"USRNAME", "operator"}, {"PASSWD", "secret"},
          {"RTP_OVER_TCP", overTcp}};
}

std::vector<std::string> camsimRtsp(const std::vector<std::string>& options) {
  std::vector<std::string> command{MRETRIEVER_BIN_DIR "/camsim",
                                   "rtsp",
                                   "--port",
                                   "0",
                                   "--seconds",
                                   "1",
                                   "--width",
                                   "176",
                                   "--height",
                                   "144"};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

Receiver::Receiver(const TestHost::Keys& keys, Kelvane::APP_MODE_NAME mode)
    : host(keys), producer(host.audio(), host.video(), host.metadata(), mode) {
  host.run(producer);
}

Receiver::~Receiver() {
  stop();
}

bool Receiver::stop() {
  host.stop();
  return host.awaitEnd();
}

void receive(TestHost& host) {
  Kelvane::RTSPMediaProducerImpl producer(host.audio(), host.video(), host.metadata(),
                                          Kelvane::APP_NV);
  producer.start();
}

}  // namespace testsupport
