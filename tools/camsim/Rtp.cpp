#include <sys/mman.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>

#include "UdpRelay.h"

namespace {

struct Target {
  std::string address = "127.0.0.1";
  int port = 5004;
  UdpFaults faults;
};

struct Picture {
  int framerate = 25;
  int width = 352;
  int height = 288;
  int gop = 25;
  int kbps = 0;
};

void addOptions(CLI::App& app, Target& target, Picture& picture) {
  app.add_option("--address", target.address, "where to send: a host or a multicast group");
  app.add_option("--port", target.port, "where to send");
  app.add_option("--loss", target.faults.loss, "percent of the datagrams that get lost");
  app.add_option("--reorder", target.faults.reorder, "percent that come behind the next one");
  app.add_option("--garbage", target.faults.garbage,
                 "percent that have a datagram of random bytes ahead");
  app.add_option("--stall", target.faults.stallAfter, "send no more after so many seconds");
  app.add_option("--framerate", picture.framerate, "frames a second");
  app.add_option("--width", picture.width, "video width");
  app.add_option("--height", picture.height, "video height");
  app.add_option("--gop", picture.gop, "frames from key frame to key frame");
  app.add_option("--kbps", picture.kbps, "video bit rate; 0 leaves it to the encoder");
}

std::string sourceOf(const Picture& p) {
  return "-f lavfi -i testsrc2=size=" + std::to_string(p.width) + "x" + std::to_string(p.height) +
         ":rate=" + std::to_string(p.framerate);
}

std::string encoderOf(const std::string& format, const Picture& p) {
  static const std::map<std::string, std::string> encoders = {
      {"h264", "-c:v libx264 -preset ultrafast -tune zerolatency -pix_fmt yuv420p"},
      {"mpeg4", "-c:v mpeg4 -q:v 5"},
      {"mpeg2", "-c:v mpeg2video -q:v 5"},
      {"mjpg", "-c:v mjpeg -pix_fmt yuvj420p -huffman default -q:v 5"},
  };
  const std::string rate = std::to_string(p.kbps) + "k";
  const std::string limit =
      p.kbps > 0 ? " -b:v " + rate + " -maxrate " + rate + " -bufsize " + rate : "";
  return encoders.at(format) + " -bf 0 -g " + std::to_string(p.gop) + limit;
}

std::vector<std::string> ffmpeg(const std::string& arguments) {
  std::istringstream stream("ffmpeg -v error -nostdin " + arguments);
  return {std::istream_iterator<std::string>(stream), {}};
}

// A file in memory that child processes open by name: nothing of it is left
// behind, however the process ends.
class MemoryFile {
 public:
  MemoryFile() : fd_(memfd_create("camsim", 0)) {
    if (!fd_) throw std::runtime_error("no file in memory");
  }
  std::string name() const { return "/proc/self/fd/" + std::to_string(fd_.get()); }

 private:
  Kelvane::UniqueFd fd_;
};

struct TsContents {
  std::string video = "h264";
  std::string audio = "aac";
  bool klv = false;
  bool rtp = false;
  int seconds = 8;
};

// Records of the UAS Datalink Local Set's key, ten a second, 1024 bytes each.
void writeKlv(const std::string& name, int count) {
  constexpr char kKeyAndLength[] =
      "\x06\x0E\x2B\x34\x02\x0B\x01\x01\x0E\x01\x03\x01\x01\x00\x00\x00\x82\x03\xED";
  std::ofstream file(name, std::ios::binary);
  for (int i = 0; i < count; ++i) {
    std::string value = "record " + std::to_string(i);
    value.resize(1005, ' ');
    file << std::string(kKeyAndLength, sizeof kKeyAndLength - 1) << value;
  }
}

// A clip as a file first: then sending it costs next to nothing.
void makeTsClip(const MemoryFile& clip, const TsContents& contents, const Picture& picture) {
  std::string inputs = sourceOf(picture);
  std::string outputs = " -map 0 " + encoderOf(contents.video, picture);
  int next = 1;
  if (contents.audio != "none") {
    inputs += " -f lavfi -i sine=frequency=440:sample_rate=44100";
    outputs += " -map " + std::to_string(next++) + " -ac 1 -c:a " + contents.audio;
  }
  const MemoryFile records;
  if (contents.klv) {
    writeKlv(records.name(), contents.seconds * 10);
    inputs += " -f data -i " + records.name();
    outputs += " -map " + std::to_string(next) + " -c:d copy -bsf:d setts=ts=N*9000";
  }
  const std::string line = "ffmpeg -v error -nostdin -y " + inputs + outputs + " -t " +
                           std::to_string(contents.seconds) + " -f mpegts " + clip.name();
  if (system(line.c_str()) != 0) throw std::runtime_error("ffmpeg could not make the clip");
}

int announceAndRun(const Target& target, UdpRelay& relay, const std::string& arguments) {
  printf("sending to %s:%d\n", target.address.c_str(), target.port);
  return relay.run(ffmpeg(arguments));
}

}  // namespace

int runRtp(int argc, char** argv) {
  CLI::App app("A camera that sends RTP video, unasked, to one port.", "camsim rtp");
  Target target;
  Picture picture;
  std::string format = "h264";
  addOptions(app, target, picture);
  app.add_option("--format", format, "h264, mpeg4, mpeg2 or mjpg")
      ->check(CLI::IsMember({"h264", "mpeg4", "mpeg2", "mjpg"}));
  CLI11_PARSE(app, argc, argv);
  UdpRelay relay(target.address, target.port, target.faults);
  return announceAndRun(
      target, relay,
      "-re " + sourceOf(picture) + " " + encoderOf(format, picture) +
          " -sdp_file /dev/null -f rtp rtp://127.0.0.1:" + std::to_string(relay.port()));
}

int runTs(int argc, char** argv) {
  CLI::App app("A sender of an MPEG transport stream over UDP, plain or in RTP.", "camsim ts");
  Target target;
  Picture picture;
  TsContents contents;
  addOptions(app, target, picture);
  app.add_flag("--rtp", contents.rtp, "inside RTP");
  app.add_option("--video", contents.video, "h264, mpeg4 or mpeg2")
      ->check(CLI::IsMember({"h264", "mpeg4", "mpeg2"}));
  app.add_option("--audio", contents.audio, "aac, mp2 or none")
      ->check(CLI::IsMember({"aac", "mp2", "none"}));
  app.add_flag("--klv", contents.klv, "a metadata stream of KLV records, ten a second");
  app.add_option("--seconds", contents.seconds, "length of the clip, which repeats");
  CLI11_PARSE(app, argc, argv);
  const MemoryFile clip;
  makeTsClip(clip, contents, picture);
  UdpRelay relay(target.address, target.port, target.faults);
  const std::string to = "127.0.0.1:" + std::to_string(relay.port());
  return announceAndRun(target, relay,
                        "-re -stream_loop -1 -i " + clip.name() + " -map 0 -c copy " +
                            (contents.rtp ? "-f rtp_mpegts rtp://" + to
                                          : "-f mpegts udp://" + to + "?pkt_size=1316"));
}
