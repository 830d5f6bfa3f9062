#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace host {

// One Matroska file. Everything but the last half second is on its way to the
// disk at any time, so it plays after a kill as well. One thread at a time.
// Failures throw std::runtime_error with the file's name and the reason.
class MediaFile {
 public:
  enum Track { video, audio };

  // Null for a medium that it does not hold.
  MediaFile(const std::string& name, const AVCodecParameters* videoParameters,
            const AVCodecParameters* audioParameters);
  // Leaves the file as it is; one that holds nothing is removed.
  ~MediaFile();
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  bool has(Track track) const { return streams_[track] != nullptr; }
  // `time` in milliseconds of the file; never less than the track's last one.
  // False for a frame that the format refuses; the file goes on without it.
  bool write(Track track, const uint8_t* data, std::size_t size, int64_t time, bool key);
  // Length and index, for players that want to seek.
  void finish();

 private:
  struct CloseContext {
    void operator()(AVFormatContext* context) const { avformat_free_context(context); }
  };
  AVStream* addStream(const AVCodecParameters* parameters);
  void flush(int64_t time);
  void check(int result) const;

  std::string name_;
  std::unique_ptr<AVFormatContext, CloseContext> context_;
  AVStream* streams_[2] = {};
  std::vector<uint8_t> padded_;  // a packet with the bytes that the library may read behind it
  int64_t flushed_ = 0;          // time of the last flush
  bool holdsData_ = false;
};

}  // namespace host
