#include "PushInMessages.h"

#include <cstdio>
#include <stdexcept>

#include "Clip.h"

namespace {

constexpr char kTone[] = "-f lavfi -i sine=frequency=440:sample_rate=";

unsigned at(const std::string& data, std::size_t index) {
  return static_cast<unsigned char>(data.at(index));
}

std::string tone(int rate, int seconds, const std::string& encoder) {
  return ffmpegOutput(kTone + std::to_string(rate) + " -t " + std::to_string(seconds) + " -ac 1 " +
                      encoder);
}

// The raw packets of an ADTS stream, and the configuration that its headers hold.
std::vector<std::string> rawPackets(const std::string& adts, std::string& config) {
  constexpr std::size_t kHeader = 7;
  std::vector<std::string> packets;
  for (std::size_t i = 0; i + kHeader <= adts.size();) {
    const std::size_t size =
        (at(adts, i + 3) & 3) << 11 | at(adts, i + 4) << 3 | at(adts, i + 5) >> 5;
    packets.push_back(adts.substr(i + kHeader, size - kHeader));
    i += size;
  }
  // Object type 5 bits, rate index 4, channels 4.
  const unsigned type = (at(adts, 2) >> 6) + 1;
  const unsigned rate = at(adts, 2) >> 2 & 15;
  const unsigned channels = (at(adts, 2) & 1) << 2 | at(adts, 3) >> 6;
  char digits[8];
  snprintf(digits, sizeof digits, "%04X", type << 11 | rate << 7 | channels << 3);
  config = digits;
  return packets;
}

PushedTrack makeAac(int seconds) {
  constexpr int kRate = 16000;
  constexpr double kSamples = 1024;
  constexpr std::size_t kPackets = 4;
  std::string config;
  const auto packets = rawPackets(tone(kRate, seconds, "-c:a aac -b:a 48k -f adts"), config);
  PushedTrack track;
  track.perSecond = kRate / kSamples / kPackets;
  for (std::size_t i = 0; i + kPackets <= packets.size(); i += kPackets) {
    PushedMedia message;
    std::string offsets;
    for (std::size_t k = i; k < i + kPackets; ++k) {
      if (k > i) {  // the last packet needs no offset
        char entry[16];
        snprintf(entry, sizeof entry, "%s%04zu", k > i + 1 ? "," : "", message.body.size());
        offsets += entry;
      }
      message.body += packets[k];
    }
    message.contentType =
        "audio/MPEG4-GENERIC;config=" + config + ";numpackets=3;offsets=" + offsets;
    track.messages.push_back(message);
  }
  return track;
}

PushedTrack makePcm(const std::string& contentType, int rate, int sampleBytes, int seconds,
                    const std::string& encoder) {
  constexpr int kPerSecond = 25;
  const std::string samples = tone(rate, seconds, encoder);
  const auto size = static_cast<std::size_t>(rate * sampleBytes / kPerSecond);
  PushedTrack track;
  track.perSecond = kPerSecond;
  for (std::size_t i = 0; i + size <= samples.size(); i += size) {
    track.messages.push_back({contentType, samples.substr(i, size)});
  }
  return track;
}

}  // namespace

PushedTrack makePushedVideo(int seconds, int framerate, int kbps) {
  ClipOptions options;
  options.seconds = seconds;
  options.framerate = framerate;
  options.kbps = kbps;
  PushedTrack track;
  track.perSecond = framerate;
  for (const std::string& frame : makeClip(options).frames) {
    track.messages.push_back({"video/H264", frame});
  }
  return track;
}

PushedTrack makePushedAudio(const std::string& codec, int seconds) {
  if (codec == "aac") return makeAac(seconds);
  if (codec == "pcmu") return makePcm("audio/PCMU", 8000, 1, seconds, "-f mulaw");
  if (codec == "l16") return makePcm("audio/L16/16000/1", 16000, 2, seconds, "-f s16be");
  if (codec == "l8") return makePcm("audio/L8", 8000, 1, seconds, "-f u8");
  throw std::runtime_error("unknown audio " + codec + " (aac, pcmu, l16, l8, none)");
}

std::string pushedMessage(const PushedMedia& media, const std::string& lines) {
  std::string message;
  if (!media.contentType.empty()) message += "Content-Type: " + media.contentType + "\r\n";
  return message + "Content-Length: " + std::to_string(media.body.size()) + "\r\n" + lines +
         "\r\n" + media.body;
}

std::string faultyMessage(const std::string& name) {
  constexpr std::size_t kLarge = 2000000;
  const std::string body = "no picture at all";
  if (name == "no-length") return "Content-Type: video/H264\r\n\r\n";
  if (name == "negative") return "Content-Length: -17\r\n\r\n" + body;
  if (name == "oversized") return pushedMessage({"video/H264", std::string(kLarge, 'v')}, "");
  if (name == "lying-length") return "Content-Length: 2147483647\r\n\r\n" + body;
  if (name == "endless-header") return "Message: " + std::string(kLarge, 'm');
  const std::string aac = "audio/MPEG4-GENERIC;config=";
  if (name == "bad-offset")
    return pushedMessage({aac + "1408;numpackets=1;offsets=9999", body}, "");
  if (name == "short-config") return pushedMessage({"audio/MPEG4-GENERIC;config=14", body}, "");
  if (name == "bad-type") return pushedMessage({"audio/L16/8000", body}, "");
  throw std::runtime_error("unknown fault " + name);
}
