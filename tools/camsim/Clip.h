#pragma once

#include <string>
#include <vector>

// A short test clip, made by ffmpeg and cut into access units.
struct ClipOptions {
  std::string format = "h264";  // mjpg, mpeg4, h264, mpeg2
  int seconds = 4;
  int framerate = 25;
  int width = 352;
  int height = 288;
  int kbps = 0;  // 0: what the encoder likes
  int gop = 25;  // frames from key frame to key frame
};

struct Clip {
  std::vector<std::string> frames;  // access units, start codes included
  int framerate = 25;
};

// Throws std::runtime_error when ffmpeg is missing or makes nothing.
Clip makeClip(const ClipOptions& options);
// The same from an elementary stream file of that format.
Clip loadClip(const std::string& file, const std::string& format, int framerate);
// Raw output of an ffmpeg command line (without "ffmpeg" itself), for other media.
std::string ffmpegOutput(const std::string& arguments);
