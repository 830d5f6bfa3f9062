#include <cstdio>
#include <utility>

#include "VendorDevice.h"

using Kelvane::UniqueFd;

namespace {

struct Options : VendorOptions {
  int configurationPort = 2003;
  int streamPort = 2002;
  int channel = 1;
  int audioEvery = 10;  // frames
  bool secondHeaders = false;
};

std::string message(unsigned type, unsigned a, unsigned b, unsigned c, const std::string& data,
                    std::size_t behind = 0) {
  const auto size = static_cast<unsigned>(data.size());
  return le32(24 + size + static_cast<unsigned>(behind)) + le32(type) + le32(a) + le32(b) +
         le32(c) + le32(size) + data;
}

unsigned wireChannel(const Options& options) {
  return static_cast<unsigned>(options.channel - 1);
}

// Bytes that no client may change, other than the first twelve.
std::string parameters() {
  std::string data;
  for (int i = 0; i < 216; ++i) data.push_back(static_cast<char>(i ^ 0x5A));
  data[0] = 2;
  return data;
}

// The parameters are read over one connection and written over the next one.
bool configure(const UniqueFd& listener, const Options& options) {
  const std::string answer = message(0x31A, wireChannel(options), 7, 9, parameters());
  {
    const UniqueFd connection = acceptTcp(listener);
    if (!expectRead(connection, "read request",
                    le32(24) + le32(0x31A) + le32(wireChannel(options)) + std::string(12, '\0'))) {
      return false;
    }
    sendAll(connection, answer);
    if (!readExactly(connection, 1).empty()) {
      fprintf(stderr, "the parameters came on the connection that they were read on\n");
      return false;
    }
  }
  const UniqueFd connection = acceptTcp(listener);
  const std::string written = readExactly(connection, answer.size());
  std::string header = answer.substr(0, 24);
  header[4] = 0x1C;
  if (written.size() != answer.size() ||
      !expectBytes("header of the write request", written.substr(0, 24), header) ||
      !expectBytes("untouched parameters", written.substr(24 + 11), parameters().substr(11))) {
    return false;
  }
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(written[24 + i]); };
  printf("parameters: size 0x%.2x, policy %u, bitrate %u, quality %u, rate %u, interval %u\n",
         at(1), at(2), at(4) | at(5) << 8U, at(8), at(9), at(10));
  return sendAll(connection, message(0x31C, 0, 0, 0, ""));
}

bool login(const UniqueFd& connection, const Options& options) {
  const auto u = static_cast<unsigned>(options.user.size());
  const auto p = static_cast<unsigned>(options.password.size());
  return expectRead(connection, "login",
                    le32(u + p + 88) + le32(0x340) + le32(0) + le32(u) + le32(p) +
                        le32(u + p + 64) + le32(wireChannel(options)) + std::string(28, '\xFF') +
                        std::string(32, '\0') + options.user + options.password) &&
         expectRead(connection, "I-frame request", le32(24) + le32(0x3A5) + std::string(16, '\0'));
}

// Words in the wrong order, one more word at the end, and an own start code
// instead of the stream headers.
std::string encoded(const std::string& frame) {
  constexpr char kVolume = 0x20;
  std::string data = withoutHeadersAhead(frame, kVolume);
  if (data.size() != frame.size()) data = fromHex("00000101") + data;
  data.resize((data.size() + 3) / 4 * 4 + 4, '\0');
  for (std::size_t at = 0; at < data.size(); at += 4) {
    std::swap(data[at], data[at + 3]);
    std::swap(data[at + 1], data[at + 2]);
  }
  return data;
}

void stream(const UniqueFd& connection, const Options& options) {
  constexpr std::size_t kHeaderSize = 24;
  constexpr unsigned kAudio = 0x101, kVideo = 0x102, kWidth = 352, kHeight = 288;
  const std::string motion(52, '\x4D');
  const Clip clip = makeClip(options.clip);
  PacketSender sender(connection, options);
  Ticker ticker(clip.framerate);
  for (std::size_t i = options.midFrame ? 3 : 0;; ++i) {
    const std::string data = encoded(frameToSend(clip, i, options));
    std::string video = message(kVideo, 0, kWidth, kHeight, data, motion.size());
    if (options.secondHeaders && i % static_cast<std::size_t>(options.clip.gop) != 0) {
      // A message header and as many bytes as the frame has, in between.
      video.insert(kHeaderSize, message(kVideo, 0, kWidth, kHeight, std::string(data.size(), 'x')));
    }
    if (!sender.send(video + motion, kHeaderSize)) return;
    if (options.audioEvery > 0 && i % static_cast<std::size_t>(options.audioEvery) == 0 &&
        !sender.send(message(kAudio, 0, 64, 0, std::string(320, '\x7F')), kHeaderSize)) {
      return;
    }
    ticker.wait();
  }
}

}  // namespace

int runDante(int argc, char** argv) {
  CLI::App app("A Dante encoder: configuration and stream connection, MPEG-4.", "camsim dante");
  Options options;
  options.clip.format = "mpeg4";
  addVendorOptions(app, options, "messages");
  app.add_option("--port", options.configurationPort, "configuration port");
  app.add_option("--stream-port", options.streamPort, "login and stream port");
  app.add_option("--channel", options.channel, "channel that is served, from 1");
  app.add_option("--audio-every", options.audioEvery, "an audio message behind so many frames");
  app.add_flag("--second-headers", options.secondHeaders,
               "one more message header ahead of the frames that are no I-frames");
  CLI11_PARSE(app, argc, argv);
  const UniqueFd configurations = listenTcp(options.address, options.configurationPort);
  const UniqueFd streams = listenTcp(options.address, options.streamPort);
  printf("dante on %s:%d and %d\n", options.address.c_str(), boundPort(configurations),
         boundPort(streams));
  while (true) {
    if (!configure(configurations, options)) continue;
    const UniqueFd connection = acceptTcp(streams);
    if (login(connection, options)) stream(connection, options);
  }
}
