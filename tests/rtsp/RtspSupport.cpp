#include "RtspSupport.h"

#include <algorithm>

#include "DeviceConnection.h"

namespace testsupport {

std::string RtspRequest::header(const std::string& name) const {
  const std::size_t at = text.find("\r\n" + name + ": ");
  if (at == std::string::npos) return "";
  const std::size_t begin = at + name.size() + 4;
  return text.substr(begin, text.find("\r\n", begin) - begin);
}

ScriptedCamera::ScriptedCamera(CameraScript script) : script_(std::move(script)) {
  thread_ = std::thread([this] {
    while (!done_) serve(peer_.accept());
  });
}

ScriptedCamera::~ScriptedCamera() {
  done_ = true;
  const auto wakesTheAccept = Kelvane::connectToDevice("127.0.0.1", peer_.port());
  thread_.join();
}

TestHost::Keys rtspKeys(const std::string& port, const std::string& overTcp) {
  return {{"PROTO", "RTSP"},        {"DEVIP", "127.0.0.1"},  {"RTSP_PORT", port},
          {"RTSP_URL", "/live"},    {"USRNAME", "operator"}, {"PASSWD", "secret"},
          {"RTP_OVER_TCP", overTcp}};
}

TestHost::Keys ScriptedCamera::keys(const std::string& overTcp) const {
  return rtspKeys(std::to_string(peer_.port()), overTcp);
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
    const auto names = methods();
    return std::find(names.begin(), names.end(), method) != names.end();
  });
}

std::string reply(const RtspRequest& request, const std::string& status, const std::string& headers,
                  const std::string& body) {
  std::string text =
      "RTSP/1.0 " + status + "\r\nCSeq: " + request.header("CSeq") + "\r\n" + headers;
  if (!body.empty()) {
    text +=
        "Content-Type: application/sdp\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return text + "\r\n" + body;
}

std::string ScriptedCamera::answerTo(const RtspRequest& request) const {
  const auto scripted = script_.answers.find(request.method);
  if (scripted != script_.answers.end()) return scripted->second(request);
  if (request.method == "DESCRIBE") {
    return reply(request, "200 OK", "Content-Base: " + url() + "/\r\n",
                 "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=camera\r\nt=0 0\r\n" + script_.mediaLines);
  }
  if (request.method == "SETUP") {
    std::string transport = request.header("Transport");
    if (transport.find("TCP") == std::string::npos) transport += ";server_port=40000-40001";
    return reply(
        request, "200 OK",
        "Session: 12345678" + script_.sessionWords + "\r\nTransport: " + transport + "\r\n");
  }
  return reply(request);
}

void ScriptedCamera::serve(PeerConnection connection) {
  while (connection.open() && !done_) {
    // Receiver reports of the client come in between, in frames of their own.
    std::string text = connection.read(1);
    if (text == "$") {
      const std::string head = connection.read(3);
      connection.read(static_cast<unsigned char>(head[1]) * 256U +
                      static_cast<unsigned char>(head[2]));
      continue;
    }
    text += connection.readUntil("\r\n\r\n");
    if (text.find("\r\n\r\n") == std::string::npos) return;
    const RtspRequest request{text.substr(0, text.find(' ')), text};
    {
      std::lock_guard<std::mutex> held(mutex_);
      requests_.push_back(request);
    }
    if (request.method == script_.closesAt) {
      connection.write(script_.lastWords);
      return;
    }
    connection.write(answerTo(request));
    if (request.method == "PLAY" && script_.afterPlay) script_.afterPlay(connection);
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

std::vector<std::string> camsimRtsp(const std::vector<std::string>& options) {
  std::vector<std::string> command{"rtsp", "--port", "0", "--seconds", "1"};
  command.insert(command.end(), {"--width", "176", "--height", "144"});
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
