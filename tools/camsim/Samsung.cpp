#include <sys/socket.h>

#include <cstdio>
#include <functional>
#include <thread>

#include "VendorDevice.h"

using Kelvane::UniqueFd;

namespace {

constexpr std::size_t kHeaderSize = 12;

struct Options : VendorOptions {
  int controlPort = 4000;
  int streamPort = 4001;
  long keepAlives = -1;  // answered; -1 for all
};

std::string padded(const std::string& text) {
  std::string field = text;
  field.resize(8, '\0');
  return field;
}

// What the client asks for, or false when it does not speak like one.
bool configure(const UniqueFd& control, Options& options) {
  const std::string answer = fromHex("53445652 00100C00 11710100 00000000");
  if (!expectRead(control, "connect request",
                  fromHex("53445652 00100C00 11710000 14000001") + padded(options.password) +
                      padded(options.user)) ||
      !sendAll(control, answer)) {
    return false;
  }
  const std::string request = readExactly(control, 22);
  if (!expectBytes("configuration request", request.substr(0, 16),
                   fromHex("53445652 00100C00 11510001 0A000100")) ||
      !expectBytes("end of the configuration request", request.substr(20), fromHex("0000"))) {
    return false;
  }
  if (request[16] != 1 && request[16] != 2) {
    fprintf(stderr, "wrong media type %d in the configuration request\n", request[16]);
    return false;
  }
  options.clip.format = request[16] == 1 ? "mpeg4" : "mjpg";
  printf("stream wanted: %s, size %d, rate %d, compression %d\n", options.clip.format.c_str(),
         request[17], request[18], request[19]);
  return sendAll(control, answer) &&
         expectRead(control, "request", fromHex("53445652 00000C00 10730001")) &&
         sendAll(control, std::string(298, '\x01'));
}

void answerKeepAlives(const UniqueFd& control, long answered) {
  const std::string wanted = fromHex("53445652 00100C00 197D0001 04000000");
  for (long count = 0;; ++count) {
    const std::string got = readExactly(control, wanted.size());
    if (got.empty()) return;
    if (!expectBytes("keep-alive", got, wanted)) break;
    printf("keep-alive %ld\n", count + 1);
    if (count == answered) {
      fprintf(stderr, "refusing a keep-alive\n");
      break;
    }
    if (!sendAll(control, fromHex("53445652 00100C00 197D0101 00000000"))) return;
  }
  shutdown(control.get(), SHUT_RDWR);
}

std::string packet(bool first, const std::string& payload) {
  const std::size_t size = kHeaderSize + (first ? 72 : 0) + payload.size();
  std::string data = "SDVR" + fromHex("0001");
  data.push_back(static_cast<char>(size));
  data.push_back(static_cast<char>(size >> 8));
  data += fromHex(first ? "0000 8001" : "0000 0001");
  if (first) data += std::string(72, '\x48');
  return data + payload;
}

// The device sends no sequence headers, and pads its frames with zeros.
bool sendFrame(PacketSender& sender, std::string frame, std::size_t packetSize, bool midFrame) {
  frame = withoutHeadersAhead(frame, 0x00);
  frame.resize((frame.size() + 3) / 4 * 4, '\0');
  for (std::size_t at = 0; at < frame.size(); at += packetSize) {
    if (midFrame && at == 0) continue;
    if (!sender.send(packet(at == 0, frame.substr(at, packetSize)), kHeaderSize)) return false;
  }
  return true;
}

void stream(const UniqueFd& connection, const Options& options) {
  if (!expectRead(connection, "stream request", fromHex("53445652 00FC0C00 30118001"))) return;
  const Clip clip = makeClip(options.clip);
  streamClip(connection, clip, options,
             [&](PacketSender& sender, const std::string& frame, bool cut) {
               return sendFrame(sender, frame, options.packetSize, cut);
             });
}

}  // namespace

int runSamsung(int argc, char** argv) {
  CLI::App app("A Samsung DVR: control and stream connection, MPEG-4 or motion JPEG.",
               "camsim samsung");
  Options options;
  addVendorOptions(app, options, "packets");
  app.add_option("--port", options.controlPort, "control port");
  app.add_option("--stream-port", options.streamPort, "stream port");
  app.add_option("--keep-alives", options.keepAlives, "answer that many, refuse the next");
  CLI11_PARSE(app, argc, argv);
  const UniqueFd controls = listenTcp(options.address, options.controlPort);
  const UniqueFd streams = listenTcp(options.address, options.streamPort);
  printf("samsung on %s:%d and %d\n", options.address.c_str(), boundPort(controls),
         boundPort(streams));
  while (true) {
    const UniqueFd control = acceptTcp(controls);
    if (!configure(control, options)) continue;
    std::thread keepAlives(answerKeepAlives, std::cref(control), options.keepAlives);
    stream(acceptTcp(streams), options);
    keepAlives.join();
  }
}
