#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "AccessUnits.h"
#include "Codecs.h"
#include "MediaFile.h"
#include "MetadataDatabase.h"
#include "Recording.h"
#include "Timeline.h"

namespace host {

// Files begin at a key frame, or at once for a camera that sends only audio. A
// new one begins when the segment is full, when the picture changes its size,
// and when a medium joins. After a failure it is tried again from time to time.
class Recorder : public Recording {
 public:
  explicit Recorder(const RecordingOptions& options);
  void close() override;

  void onInit(Kelvane::MEDIA_TYPE media, const std::string& codec,
              const std::string& config) override;
  void onFrame(const Kelvane::MediaFrame& frame) override;
  void onTrigger(const std::string&) override {}
  void onState(Kelvane::StreamState::STATE, Kelvane::StreamState::ERRNO) override {}
  void onPid(bool, bool) override {}
  void onExtraData(const std::string&, const timeval&, const std::string&) override {}
  void write(const std::string& deviceId, const timeval& tv, const std::string& name,
             const std::string& record) override;

 private:
  using Clock = std::chrono::steady_clock;

  void videoFrame(const Kelvane::MediaFrame& frame);
  void videoUnit(const AccessUnit& unit);
  bool learnPicture(const AccessUnit& unit);
  void audioFrame(const Kelvane::MediaFrame& frame);
  timeval playTime(const timeval& tv);
  bool wantsNewFile() const;
  void newFile(const timeval& tv);
  void write(MediaFile::Track track, const uint8_t* data, std::size_t size, const timeval& tv,
             bool key);
  void finishFile();
  std::string fileName(const timeval& tv) const;
  template <class Work>
  void guarded(Work work);
  template <class Work>
  void inDatabase(Work work);

  const RecordingOptions options_;
  std::mutex mutex_;
  bool closed_ = false;

  std::string videoName_;
  std::optional<AccessUnitAssembler> assembler_;  // once the video codec is known
  VideoCodec videoCodec_{};
  std::string configuration_;  // that videoParameters_ were taken from
  CodecParameters videoParameters_;
  std::string audioName_;
  std::string audioConfig_;
  CodecParameters audioParameters_;
  std::optional<timeval> firstAudio_;
  std::optional<timeval> lastAudio_;
  int64_t samplesAhead_ = 0;  // of the time that several packets share

  std::unique_ptr<MediaFile> file_;
  std::optional<Timeline> timeline_;
  int64_t fileTime_ = 0;  // milliseconds, of the last frame
  bool failed_ = false;   // reported, and not recovered yet
  Clock::time_point retryAt_;
  bool saidNoVideo_ = false;
  bool saidNoAudio_ = false;
  bool saidRefused_ = false;

  std::unique_ptr<MetadataDatabase> database_;
  bool databaseFailed_ = false;
};

}  // namespace host
