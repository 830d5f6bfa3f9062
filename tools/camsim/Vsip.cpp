#include <Base64.hh>
#include <cstdio>
#include <functional>
#include <memory>
#include <thread>

#include "VendorDevice.h"

using Kelvane::UniqueFd;

namespace {

constexpr std::size_t kHeaderSize = 6;

struct Options : VendorOptions {
  int port = 5010;
  int httpPort = 80;
  std::string uid;
  std::string targetGuid;
  std::string sourceGuid;
  long keepAlives = -1;  // answered; -1 for all
};

// The page's request as far as this device knows it: an option that is not set
// allows any value.
bool expectKeepAlive(const std::string& request, long number, const Options& options) {
  std::unique_ptr<char[]> login(
      base64Encode((options.user + ":" + options.password).c_str(),
                   static_cast<unsigned>(options.user.size() + options.password.size() + 1)));
  const std::string parts[] = {
      "GET /FramesetRightCommand.asp?command=KeepAlive&TargetGuid=" + options.targetGuid,
      "&TargetIp=",
      "&TargetPort=0&SourceGuid=" + options.sourceGuid,
      "&TargetAudioIp=",
      "TargetAudioPort=0&FakeParam=" + std::to_string(number) + " HTTP/1.0\r\nHost: ",
      options.user.empty() ? "\r\n\r\n"
                           : std::string("\r\nAuthorization: Basic ") + login.get() + "\r\n\r\n",
  };
  std::size_t at = 0;
  for (const std::string& part : parts) {
    at = request.find(part, at);
    if (at == std::string::npos) {
      fprintf(stderr, "wrong keep-alive: it lacks \"%s\"\n%s", part.c_str(), request.c_str());
      return false;
    }
    at += part.size();
  }
  return true;
}

// Each client counts from 2 on.
void serveKeepAlives(const UniqueFd& listener, const Options& options) {
  constexpr long kFirst = 2;
  long number = kFirst;
  for (long count = 0;; ++count, ++number) {
    const UniqueFd connection = acceptTcp(listener);
    const std::string request = readUntil(connection, "\r\n\r\n");
    if (request.find("FakeParam=2 ") != std::string::npos) number = kFirst;
    const bool right = expectKeepAlive(request, number, options);
    if (count == options.keepAlives) {
      fprintf(stderr, "refusing a keep-alive\n");
      continue;
    }
    printf("keep-alive %ld%s\n", count + 1, right ? "" : " was wrong");
    sendAll(connection, right ? "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nOK"
                              : "HTTP/1.0 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
  }
}

bool begin(const UniqueFd& connection, const Options& options) {
  const std::string request = readExactly(connection, 40);
  if (!expectBytes("stream request", request.substr(0, 7), fromHex("01001300010028"))) return false;
  const std::string uid = fromHex(options.uid);
  if (!uid.empty() && !expectBytes("stream identifier", request.substr(7), uid)) return false;
  return sendAll(connection, std::string(24, '\x01'));
}

std::string packet(unsigned number, const std::string& payload) {
  const std::size_t size = kHeaderSize + payload.size();
  std::string data;
  data.push_back(static_cast<char>(number >> 8));
  data.push_back(static_cast<char>(number));
  data.push_back(static_cast<char>(size >> 8));
  data.push_back(static_cast<char>(size));
  return data + fromHex("0000") + payload;
}

// A packet inside a frame must not begin like a frame.
bool sendFrame(PacketSender& sender, const std::string& frame, std::size_t packetSize,
               bool midFrame) {
  const std::string startCode("\0\0\1", 3);
  unsigned number = 0;
  for (std::size_t at = 0; at < frame.size(); ++number) {
    std::size_t end = at + packetSize;
    while (end < frame.size() && frame.compare(end, 3, startCode) == 0) ++end;
    const std::string payload = frame.substr(at, end - at);
    at = end;
    if (midFrame && number == 0) continue;
    if (!sender.send(packet(number, payload), kHeaderSize)) return false;
  }
  return true;
}

void stream(const UniqueFd& connection, const Clip& clip, const Options& options) {
  streamClip(connection, clip, options,
             [&](PacketSender& sender, const std::string& frame, bool cut) {
               return sendFrame(sender, frame, options.packetSize, cut);
             });
}

}  // namespace

int runVsip(int argc, char** argv) {
  CLI::App app("A Verint device: stream connection and keep-alive page, MPEG-4 or motion JPEG.",
               "camsim vsip");
  Options options;
  options.clip.format = "mpeg4";
  addVendorOptions(app, options, "packets");
  app.add_option("--format", options.clip.format, "mpeg4 or mjpg");
  app.add_option("--port", options.port, "stream port");
  app.add_option("--http-port", options.httpPort, "port of the keep-alive page");
  app.add_option("--uid", options.uid, "stream identifier that is expected, in hexadecimal");
  app.add_option("--target-guid", options.targetGuid, "TargetGuid that is expected");
  app.add_option("--source-guid", options.sourceGuid, "SourceGuid that is expected");
  app.add_option("--keep-alives", options.keepAlives, "answer that many, refuse the next");
  CLI11_PARSE(app, argc, argv);
  const UniqueFd streams = listenTcp(options.address, options.port);
  const UniqueFd pages = listenTcp(options.address, options.httpPort);
  const Clip clip = makeClip(options.clip);
  printf("vsip on %s:%d, page on %d\n", options.address.c_str(), boundPort(streams),
         boundPort(pages));
  std::thread(serveKeepAlives, std::cref(pages), std::cref(options)).detach();
  while (true) {
    const UniqueFd connection = acceptTcp(streams);
    if (begin(connection, options)) stream(connection, clip, options);
  }
}
