#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One stream of the simulated camera as it goes into RTP packets: frames of
// one or more units (NAL units, slices, a scan) that share a time stamp.
struct RtspTrack {
  std::string format;  // h264, mpeg4, mjpg, mpeg2, pcmu, pcma, aac, metadata
  std::vector<std::vector<std::string>> frames;
  double framesPerSecond = 25;
  unsigned kbps = 2000;            // an estimate, for the RTCP share
  unsigned samplingFrequency = 0;  // Hz, of AAC
  // What the description says: sprop-parameter-sets, or configuration bytes in hexadecimal.
  std::string config;
  // Of JPEG: both quantisation tables, and the size in blocks of 8 pixels.
  std::string quantisation;
  std::uint8_t width = 0, height = 0, jpegType = 1;
};

struct RtspMediaOptions {
  std::string video = "h264";  // or mpeg4, mjpg, mpeg2, none
  std::string audio = "none";  // or pcmu, pcma, aac
  bool metadata = false;
  int seconds = 4;  // of the clip, which is repeated
  int framerate = 25;
  int kbps = 0;
  int gop = 25;
  int width = 352, height = 288;
};

// Throw std::runtime_error for a format that is not known.
RtspTrack makeVideoTrack(const RtspMediaOptions& options);
RtspTrack makeAudioTrack(const RtspMediaOptions& options);
RtspTrack makeMetadataTrack();
