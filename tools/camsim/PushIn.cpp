#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "Net.h"
#include "PushInMessages.h"
#include "UniqueFd.h"

namespace {

constexpr char kMicros[] = "%ld.%06ld";

struct PushInOptions {
  std::string deviceId = "istream";
  std::string socket;
  std::string audio = "aac";
  int seconds = 4;
  int framerate = 25;
  int kbps = 0;
  double speed = 1;
  bool gps = false;
  std::string text;
  double clockOffset = 0;
  bool fromZero = false;
  bool noTimestamps = false;
  unsigned datagram = 32000;
  double wait = 20;
  unsigned count = 0;
  std::string fault;
  unsigned faultEvery = 50;
  unsigned stallAfter = 0;
};

void addOptions(CLI::App& app, PushInOptions& o) {
  app.add_option("--devid", o.deviceId, "the camera's DEVID, which names the socket");
  app.add_option("--socket", o.socket, "path of the socket instead, an alias for instance");
  app.add_option("--audio", o.audio, "aac, pcmu, l16, l8 or none, beside H.264 video");
  app.add_option("--seconds", o.seconds, "length of the clip, which repeats");
  app.add_option("--framerate", o.framerate, "video frames a second");
  app.add_option("--kbps", o.kbps, "video bit rate; 0 leaves it to the encoder");
  app.add_option("--speed", o.speed, "so many times faster; 0 as fast as it is taken");
  app.add_flag("--gps", o.gps, "a position with each video frame");
  app.add_option("--text", o.text, "a text with each video frame");
  app.add_option("--clock-offset", o.clockOffset, "seconds the recorder's clock is ahead");
  app.add_flag("--from-zero", o.fromZero, "the recorder's clock starts at 0.000000");
  app.add_flag("--no-timestamps", o.noTimestamps, "messages without times");
  app.add_option("--datagram", o.datagram, "bytes a datagram at most")
      ->check(CLI::Range(1U, 100000U));
  app.add_option("--wait", o.wait, "seconds to wait for the retriever, also when it goes away");
  app.add_option("--count", o.count, "leave after so many messages; 0 never");
  app.add_option("--fault", o.fault,
                 "no-length, negative, oversized, lying-length, endless-header, bad-offset, "
                 "short-config or bad-type (which ends the retriever)");
  app.add_option("--fault-every", o.faultEvery, "messages from one fault to the next")
      ->check(CLI::PositiveNumber);
  app.add_option("--stall-after", o.stallAfter, "stop for good in the middle of that message");
}

// The retriever's socket. A local datagram socket blocks while the other side
// is busy, so nothing is lost on the way.
class Outlet {
 public:
  explicit Outlet(const PushInOptions& options) : options_(options) { open(); }

  void send(const std::string& message) {
    for (std::size_t at = 0; at < message.size(); at += options_.datagram) {
      const std::string datagram = message.substr(at, options_.datagram);
      if (::send(fd_.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) < 0) {
        printf("camsim pushin: the retriever is gone: %s\n", strerror(errno));
        open();
        return;  // the rest would have no beginning
      }
    }
  }

 private:
  void open() {
    const std::string path = options_.socket.empty()
                                 ? "/tmp/." + options_.deviceId + ".media.recorder.sock"
                                 : options_.socket;
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    if (path.size() >= sizeof name.sun_path) throw std::runtime_error("path too long: " + path);
    path.copy(name.sun_path, path.size());
    fd_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration<double>(options_.wait);
    while (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        throw std::runtime_error("nobody serves " + path + ": " + strerror(errno));
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    printf("camsim pushin: pushing into %s\n", path.c_str());
  }

  const PushInOptions& options_;
  Kelvane::UniqueFd fd_;
};

// Plays both tracks side by side on the recorder's clock.
class Recorder {
 public:
  explicit Recorder(const PushInOptions& options)
      : options_(options),
        video_(makePushedVideo(options.seconds, options.framerate, options.kbps)),
        audio_(options.audio == "none" ? PushedTrack{}
                                       : makePushedAudio(options.audio, options.seconds)),
        outlet_(options) {
    if (options.fromZero) return;
    timeval now{};
    gettimeofday(&now, nullptr);
    beginning_ = now.tv_sec * 1000000L + now.tv_usec + static_cast<long>(options.clockOffset * 1e6);
  }

  // False when it is time to leave.
  bool playFrame() {
    const double at = static_cast<double>(frame_) / video_.perSecond;
    if (!push(pushedMessage(video_.messages[frame_ % video_.messages.size()],
                            timestamp(at) + extras()))) {
      return false;
    }
    ++frame_;
    while (!audio_.messages.empty() && static_cast<double>(sound_) / audio_.perSecond <= at) {
      const std::string lines = timestamp(static_cast<double>(sound_) / audio_.perSecond);
      if (!push(pushedMessage(audio_.messages[sound_ % audio_.messages.size()], lines))) {
        return false;
      }
      ++sound_;
    }
    return true;
  }

  void report() const { printf("%u messages, %llu bytes\n", pushed_, bytes_); }

 private:
  std::string timestamp(double position) const {
    if (options_.noTimestamps) return "";
    const long time = beginning_ + static_cast<long>(position * 1e6);
    char text[64];
    snprintf(text, sizeof text, kMicros, time / 1000000L, time % 1000000L);
    return std::string("Timestamp: ") + text + "\r\n";
  }

  // A slow walk to the north-east.
  std::string extras() const {
    std::string lines;
    if (options_.gps) {
      char text[128];
      const double step = static_cast<double>(frame_) * 1e-5;
      snprintf(text, sizeof text,
               "GEO_Latitude: %.6f\r\nGEO_Longitude: %.6f\r\nGEO_Altitude: %.1f\r\n", 55.75 + step,
               37.5 + step, 150.0);
      lines += text;
    }
    if (!options_.text.empty()) lines += "Message: " + options_.text + "\r\n";
    return lines;
  }

  bool push(const std::string& message) {
    if (!options_.fault.empty() && pushed_ % options_.faultEvery == options_.faultEvery - 1) {
      outlet_.send(faultyMessage(options_.fault));
    }
    if (options_.stallAfter > 0 && pushed_ + 1 == options_.stallAfter) {
      outlet_.send(message.substr(0, message.size() / 2));
      printf("camsim pushin: stalled\n");
      for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
    }
    outlet_.send(message);
    ++pushed_;
    bytes_ += message.size();
    return options_.count == 0 || pushed_ < options_.count;
  }

  const PushInOptions& options_;
  const PushedTrack video_;
  const PushedTrack audio_;
  Outlet outlet_;
  long beginning_ = 0;  // microseconds of the recorder's clock
  std::size_t frame_ = 0;
  std::size_t sound_ = 0;
  unsigned pushed_ = 0;
  unsigned long long bytes_ = 0;
};

}  // namespace

int runPushIn(int argc, char** argv) {
  CLI::App app(
      "A recorder process that pushes H.264 video, audio, positions and texts into the retriever's "
      "local socket.",
      "camsim pushin");
  PushInOptions options;
  addOptions(app, options);
  CLI11_PARSE(app, argc, argv);
  Recorder recorder(options);
  Ticker ticker(options.framerate * options.speed);
  while (recorder.playFrame()) ticker.wait();
  recorder.report();
  return 0;
}
