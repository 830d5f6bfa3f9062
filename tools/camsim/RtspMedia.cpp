#include "RtspMedia.h"

#include <Base64.hh>
#include <memory>
#include <stdexcept>

#include "Clip.h"

namespace {

constexpr int kJpegBlock = 8;
constexpr int kMpegStartCode = 3;  // bytes of 00 00 01

std::size_t at(const std::string& data, std::size_t index) {
  return static_cast<unsigned char>(data.at(index));
}

std::string hexOf(const std::string& data) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : data) {
    text.push_back(digits[static_cast<unsigned char>(c) >> 4]);
    text.push_back(digits[static_cast<unsigned char>(c) & 15]);
  }
  return text;
}

std::string base64(const std::string& data) {
  const std::unique_ptr<char[]> text(base64Encode(data.data(), static_cast<unsigned>(data.size())));
  return text.get();
}

const std::string kStart("\0\0\1", kMpegStartCode);

// The units between start codes, without them.
std::vector<std::string> nalUnits(const std::string& frame) {
  std::vector<std::string> units;
  std::size_t begin = frame.find(kStart);
  while (begin != std::string::npos) {
    begin += kMpegStartCode;
    const std::size_t next = frame.find(kStart, begin);
    std::string unit = frame.substr(begin, next == std::string::npos ? next : next - begin);
    // The zero byte of a long start code belongs to no unit.
    while (next != std::string::npos && !unit.empty() && unit.back() == '\0') unit.pop_back();
    if (!unit.empty()) units.push_back(unit);
    begin = next;
  }
  return units;
}

void packH264(const Clip& clip, RtspTrack& track) {
  constexpr std::size_t kTypeMask = 31, kSps = 7, kPps = 8;
  std::string sps, pps;
  for (const std::string& frame : clip.frames) {
    track.frames.push_back(nalUnits(frame));
    for (const std::string& unit : track.frames.back()) {
      if ((at(unit, 0) & kTypeMask) == kSps) sps = unit;
      if ((at(unit, 0) & kTypeMask) == kPps) pps = unit;
    }
  }
  track.config = base64(sps) + "," + base64(pps);
}

// The configuration is what stands ahead of the first picture (VOP).
void packMpeg4(const Clip& clip, RtspTrack& track) {
  for (const std::string& frame : clip.frames) track.frames.push_back({frame});
  track.config = hexOf(clip.frames[0].substr(0, clip.frames[0].find(kStart + '\xB6')));
}

// Each slice is a unit; the headers ahead of the first slice are another.
void packMpeg2(const Clip& clip, RtspTrack& track) {
  constexpr std::size_t kLastSlice = 0xAF, kPicture = 0, kSequence = 0xB3, kGroup = 0xB8;
  for (const std::string& frame : clip.frames) {
    std::vector<std::string> units;
    for (std::size_t i = frame.find(kStart); i != std::string::npos;
         i = frame.find(kStart, i + kMpegStartCode)) {
      const std::size_t code = at(frame, i + kMpegStartCode);
      const std::size_t next = frame.find(kStart, i + kMpegStartCode);
      const std::string part = frame.substr(i, next == std::string::npos ? next : next - i);
      const bool starts = code == kPicture || code == kSequence || code == kGroup ||
                          (code > kPicture && code <= kLastSlice);
      if (starts || units.empty()) {
        units.push_back(part);
      } else {
        units.back() += part;  // extensions stay with their header
      }
    }
    track.frames.push_back(units);
  }
}

// RTP carries the scan only; tables and size go into the payload header.
void packJpeg(const Clip& clip, RtspTrack& track) {
  constexpr std::size_t kDqt = 0xDB, kSof = 0xC0, kSos = 0xDA, kTable = 64, kPair = 2 * kTable;
  for (const std::string& frame : clip.frames) {
    std::string tables;
    std::size_t i = 2;  // behind the start of image
    for (;;) {
      const std::size_t marker = at(frame, i + 1);
      const std::size_t length = at(frame, i + 2) << 8 | at(frame, i + 3);
      if (marker == kDqt) {
        for (std::size_t k = i + 4; k < i + 2 + length; k += 1 + kTable) {
          tables += frame.substr(k + 1, kTable);
        }
      } else if (marker == kSof) {
        track.height =
            static_cast<std::uint8_t>((at(frame, i + 5) << 8 | at(frame, i + 6)) / kJpegBlock);
        track.width =
            static_cast<std::uint8_t>((at(frame, i + 7) << 8 | at(frame, i + 8)) / kJpegBlock);
        track.jpegType = at(frame, i + 11) == 0x22 ? 1 : 0;  // 4:2:0, 4:2:2
      }
      i += 2 + length;
      if (marker == kSos) break;
    }
    if (tables.size() < kPair) tables += tables;  // one table for both
    track.quantisation = tables.substr(0, kPair);
    track.frames.push_back({frame.substr(i, frame.size() - i - 2)});
  }
}

std::vector<std::vector<std::string>> blocks(const std::string& data, std::size_t size) {
  std::vector<std::vector<std::string>> frames;
  for (std::size_t i = 0; i + size <= data.size(); i += size) {
    frames.push_back({data.substr(i, size)});
  }
  return frames;
}

constexpr char kTone[] = "-f lavfi -i sine=frequency=440:sample_rate=";

void packAac(const std::string& adts, RtspTrack& track) {
  constexpr std::size_t kHeader = 7, kLowComplexity = 2, kRate48k = 3, kChannels = 1;
  for (std::size_t i = 0; i + kHeader <= adts.size();) {
    const std::size_t size =
        (at(adts, i + 3) & 3) << 11 | at(adts, i + 4) << 3 | at(adts, i + 5) >> 5;
    track.frames.push_back({adts.substr(i + kHeader, size - kHeader)});
    i += size;
  }
  // AudioSpecificConfig: object type 5 bits, rate index 4, channels 4.
  const std::size_t config = kLowComplexity << 11 | kRate48k << 7 | kChannels << 3;
  track.config = hexOf({static_cast<char>(config >> 8), static_cast<char>(config & 255)});
  track.samplingFrequency = 48000;
  track.framesPerSecond = 48000.0 / 1024;
}

}  // namespace

RtspTrack makeVideoTrack(const RtspMediaOptions& options) {
  ClipOptions clipOptions;
  clipOptions.format = options.video;
  clipOptions.seconds = options.seconds;
  clipOptions.framerate = options.framerate;
  clipOptions.kbps = options.kbps;
  clipOptions.gop = options.gop;
  clipOptions.width = options.width;
  clipOptions.height = options.height;
  const Clip clip = makeClip(clipOptions);
  RtspTrack track;
  track.format = options.video;
  track.framesPerSecond = options.framerate;
  if (options.kbps > 0) track.kbps = static_cast<unsigned>(options.kbps);
  if (track.format == "h264") packH264(clip, track);
  if (track.format == "mpeg4") packMpeg4(clip, track);
  if (track.format == "mpeg2") packMpeg2(clip, track);
  if (track.format == "mjpg") packJpeg(clip, track);
  return track;
}

RtspTrack makeAudioTrack(const RtspMediaOptions& options) {
  RtspTrack track;
  track.format = options.audio;
  track.kbps = 64;
  const std::string length = " -t " + std::to_string(options.seconds) + " -ac 1 ";
  if (track.format == "aac") {
    packAac(ffmpegOutput(kTone + ("48000" + length) + "-c:a aac -b:a 64k -f adts"), track);
    return track;
  }
  if (track.format != "pcmu" && track.format != "pcma") {
    throw std::runtime_error("unknown audio " + track.format + " (none, pcmu, pcma, aac)");
  }
  constexpr std::size_t kPacket = 160;  // 20 ms
  const char* law = track.format == "pcmu" ? "-f mulaw" : "-f alaw";
  track.frames = blocks(ffmpegOutput(kTone + ("8000" + length) + law), kPacket);
  track.framesPerSecond = 50;
  return track;
}

RtspTrack makeMetadataTrack() {
  RtspTrack track;
  track.format = "metadata";
  track.framesPerSecond = 5;
  track.kbps = 8;
  for (int i = 0; i < 10; ++i) {
    track.frames.push_back({"<object id=\"" + std::to_string(i) + "\" x=\"" +
                            std::to_string(10 * i) + "\" y=\"20\"/>"});
  }
  return track;
}
