#include "Clip.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "ChunkStorage.h"

namespace {

std::unique_ptr<Kelvane::ChunkStorageImpl> readerOf(const std::string& format) {
  if (format == "mjpg") return std::make_unique<Kelvane::MJPGChunkStorageImpl>();
  if (format == "mpeg4") return std::make_unique<Kelvane::M4VChunkStorageImpl>();
  if (format == "h264") return std::make_unique<Kelvane::H264ChunkStorageImpl>();
  if (format == "mpeg2") return std::make_unique<Kelvane::MPEG2ChunkStorageImpl>();
  throw std::runtime_error("unknown format " + format + " (mjpg, mpeg4, h264, mpeg2)");
}

std::string encoder(const ClipOptions& options) {
  const std::string gop = " -g " + std::to_string(options.gop);
  const std::string rate = options.kbps > 0 ? " -b:v " + std::to_string(options.kbps) +
                                                  "k -maxrate " + std::to_string(options.kbps) +
                                                  "k -bufsize " + std::to_string(options.kbps) + "k"
                                            : "";
  if (options.format == "mjpg")
    return "-c:v mjpeg -huffman default -pix_fmt yuvj420p -q:v 5 -f mjpeg";
  if (options.format == "mpeg4") return "-c:v mpeg4 -bf 0 -q:v 5" + gop + rate + " -f m4v";
  if (options.format == "mpeg2")
    return "-c:v mpeg2video -bf 0 -q:v 5" + gop + rate + " -f mpeg2video";
  return "-c:v libx264 -preset ultrafast -tune zerolatency -pix_fmt yuv420p" + gop + rate +
         " -f h264";
}

Clip split(FILE* file, const ClipOptions& options) {
  const auto reader = readerOf(options.format);
  std::vector<uint8_t> buffer(8000000);
  Clip clip;
  clip.framerate = options.framerate;
  int bytes = 0;
  while ((bytes = reader->readFrame(file, buffer.data(), static_cast<uint32_t>(buffer.size()),
                                    nullptr)) > 0) {
    clip.frames.emplace_back(reinterpret_cast<const char*>(buffer.data()),
                             static_cast<std::size_t>(bytes));
  }
  if (clip.frames.empty()) throw std::runtime_error("the clip has no frames");
  return clip;
}

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

}  // namespace

std::string ffmpegOutput(const std::string& arguments) {
  const std::string command = "ffmpeg -v error -nostdin " + arguments + " -";
  const File pipe(popen(command.c_str(), "r"), pclose);
  if (!pipe) throw std::runtime_error("could not run ffmpeg");
  std::string output;
  char block[65536];
  std::size_t got = 0;
  while ((got = fread(block, 1, sizeof block, pipe.get())) > 0) output.append(block, got);
  if (output.empty()) throw std::runtime_error("ffmpeg made nothing: " + arguments);
  return output;
}

Clip makeClip(const ClipOptions& options) {
  const std::string source = "testsrc2=size=" + std::to_string(options.width) + "x" +
                             std::to_string(options.height) +
                             ":rate=" + std::to_string(options.framerate);
  const std::string stream = ffmpegOutput("-f lavfi -i " + source + " -t " +
                                          std::to_string(options.seconds) + " " + encoder(options));
  const File file(tmpfile(), fclose);
  if (!file || fwrite(stream.data(), 1, stream.size(), file.get()) != stream.size()) {
    throw std::runtime_error("could not write a temporary file");
  }
  rewind(file.get());
  return split(file.get(), options);
}

Clip loadClip(const std::string& name, const std::string& format, int framerate) {
  const File file(fopen(name.c_str(), "r"), fclose);
  if (!file) throw std::runtime_error("could not open " + name);
  ClipOptions options;
  options.format = format;
  options.framerate = framerate;
  return split(file.get(), options);
}

int runClip(int argc, char** argv) {
  CLI::App app("Writes a test clip as an elementary stream file.", "camsim clip");
  ClipOptions options;
  std::string output;
  app.add_option("output", output, "file to write")->required();
  app.add_option("--format", options.format, "mjpg, mpeg4, h264 or mpeg2");
  app.add_option("--seconds", options.seconds, "length");
  app.add_option("--framerate", options.framerate, "frames per second");
  app.add_option("--kbps", options.kbps, "bit rate; 0 leaves it to the encoder");
  CLI11_PARSE(app, argc, argv);
  const Clip clip = makeClip(options);
  const File file(fopen(output.c_str(), "w"), fclose);
  if (!file) throw std::runtime_error("could not open " + output);
  for (const std::string& frame : clip.frames) {
    if (fwrite(frame.data(), 1, frame.size(), file.get()) != frame.size()) {
      throw std::runtime_error("could not write " + output);
    }
  }
  printf("%zu frames in %s\n", clip.frames.size(), output.c_str());
  return 0;
}
