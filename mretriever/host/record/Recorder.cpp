#include "Recorder.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <thread>

#include "AccessLog.h"
#include "TimeVal.h"

namespace host {

namespace {

constexpr std::chrono::seconds kRetry{30};
// A camera whose audio has come alone for so long is taken for one without video.
constexpr long kVideoPatienceSeconds = 2;
constexpr std::chrono::seconds kClosePatience{2};

// A name that stays inside the folder.
std::string plainName(std::string name) {
  std::replace(name.begin(), name.end(), '/', '_');
  return name.empty() ? "camera" : name;
}

RecordingOptions plain(RecordingOptions options) {
  options.deviceId = plainName(options.deviceId);
  return options;
}

}  // namespace

Recorder::Recorder(const RecordingOptions& options)
    : options_(plain(options)), videoName_(options.mediaFormat) {
  av_log_set_level(AV_LOG_QUIET);  // failures come back as results
  // Told at once, not at the first frame of a camera that may be silent for hours.
  std::error_code problem;
  std::filesystem::create_directories(options_.folder, problem);
  if (problem || access(options_.folder.c_str(), W_OK | X_OK) != 0) {
    LOG_ERROR(
        "Recording fails, the stream goes on without: %s: %s", options_.folder.c_str(),
        (problem ? problem : std::error_code(errno, std::generic_category())).message().c_str());
    failed_ = true;
  }
}

// What goes wrong with a file is told once and ends that file; a later one is
// tried after a while, until the disk has room again.
template <class Work>
void Recorder::guarded(Work work) {
  try {
    work();
  } catch (const std::exception& failure) {
    if (!failed_) {
      LOG_ERROR("Recording fails, the stream goes on without: %s", failure.what());
    }
    failed_ = true;
    file_.reset();
    retryAt_ = Clock::now() + kRetry;
  }
}

void Recorder::onInit(Kelvane::MEDIA_TYPE media, const std::string& codec,
                      const std::string& config) {
  const std::lock_guard<std::mutex> held(mutex_);
  if (media == Kelvane::VIDEO && videoCodec(codec)) videoName_ = codec;
  if (media != Kelvane::AUDIO) return;
  audioName_ = codec;
  audioConfig_ = config;
  audioParameters_ = audioParameters(codec, config, nullptr, 0);
}

void Recorder::onFrame(const Kelvane::MediaFrame& frame) {
  const std::lock_guard<std::mutex> held(mutex_);
  if (closed_) return;
  switch (frame.mediaType) {
    case Kelvane::VIDEO:
      guarded([&] { videoFrame(frame); });
      break;
    case Kelvane::AUDIO:
      guarded([&] { audioFrame(frame); });
      break;
    case Kelvane::METADATA:
      inDatabase([&](MetadataDatabase& database) {
        timeval tv = frame.tv;
        if (tv.tv_sec == 0) gettimeofday(&tv, nullptr);  // positions come without a time
        database.addFrame(options_.deviceId, tv, frame.objectsData, frame.data, frame.size);
      });
      break;
  }
}

void Recorder::videoFrame(const Kelvane::MediaFrame& frame) {
  if (!assembler_) {
    const auto codec = videoCodec(videoName_);
    if (!codec) {
      if (!saidNoVideo_) LOG_ERROR("Video of format \"%s\" is not recorded", videoName_.c_str());
      saidNoVideo_ = true;
      return;
    }
    videoCodec_ = *codec;
    assembler_.emplace(*codec, [this](const AccessUnit& unit) { videoUnit(unit); });
  }
  assembler_->add(frame.data, frame.size, frame.tv);
  if (const unsigned dropped = assembler_->takeDropped()) {
    LOG_ERROR("%u pictures of more than %zu bytes are not recorded", dropped,
              AccessUnitAssembler::kLongestUnit);
  }
}

void Recorder::videoUnit(const AccessUnit& unit) {
  const bool newPicture = unit.key && learnPicture(unit);
  if (!videoParameters_) return;
  const bool lacksVideo = !file_ || !file_->has(MediaFile::video);
  if (unit.key && (lacksVideo || newPicture || wantsNewFile())) newFile(unit.tv);
  write(MediaFile::video, unit.data.data(), unit.data.size(), unit.tv, unit.key);
}

// Size and headers of the picture, from the first key frame and again when its
// headers change. True for a picture that a running file does not fit.
bool Recorder::learnPicture(const AccessUnit& unit) {
  const bool sameHeaders = unit.configuration.empty() || unit.configuration == configuration_;
  if (videoParameters_ && sameHeaders) return false;
  CodecParameters learnt = videoParameters(videoCodec_, unit);
  if (!learnt) {
    if (!saidNoVideo_) {
      LOG_WARN("The key frame does not tell the picture's size, recording waits for one that does");
    }
    saidNoVideo_ = true;
    return false;
  }
  videoParameters_ = std::move(learnt);
  configuration_ = unit.configuration;
  return true;
}

void Recorder::audioFrame(const Kelvane::MediaFrame& frame) {
  if (!audioParameters_) {
    audioParameters_ = audioParameters(audioName_, audioConfig_, frame.data, frame.size);
    if (!audioParameters_) {
      if (!saidNoAudio_) LOG_WARN("Audio of codec \"%s\" is not recorded", audioName_.c_str());
      saidNoAudio_ = true;
      return;
    }
  }
  if (!firstAudio_) firstAudio_ = frame.tv;
  const timeval tv = playTime(frame.tv);
  const bool alone =
      !videoParameters_ && frame.tv.tv_sec - firstAudio_->tv_sec >= kVideoPatienceSeconds;
  if (alone && (!file_ || wantsNewFile())) newFile(tv);
  if (audioParameters_->codec_id == AV_CODEC_ID_ADPCM_G726) {
    const auto samples =
        g726InFileOrder(frame.data, frame.size, audioParameters_->bits_per_coded_sample);
    write(MediaFile::audio, samples.data(), samples.size(), tv, true);
  } else {
    write(MediaFile::audio, frame.data, frame.size, tv, true);
  }
}

// A device may send several packets with one time: they play one after another.
timeval Recorder::playTime(const timeval& tv) {
  const bool sameTime = lastAudio_ && timercmp(&tv, &*lastAudio_, ==);
  lastAudio_ = tv;
  samplesAhead_ = sameTime ? samplesAhead_ + audioParameters_->frame_size : 0;
  if (samplesAhead_ == 0) return tv;
  const int64_t micros = samplesAhead_ * 1000000 / audioParameters_->sample_rate;
  return (Kelvane::Time_Val(tv) + Kelvane::Delay_Interval(micros / 1000000, micros % 1000000)).tv();
}

// Whether the next key frame begins a file. A medium that came late joins then.
bool Recorder::wantsNewFile() const {
  const bool full = static_cast<double>(fileTime_) >= options_.segmentSeconds * 1000;
  return full || (audioParameters_ && !file_->has(MediaFile::audio));
}

void Recorder::newFile(const timeval& tv) {
  finishFile();
  if (Clock::now() < retryAt_) return;
  std::filesystem::create_directories(options_.folder);
  file_ = std::make_unique<MediaFile>(fileName(tv), videoParameters_.get(), audioParameters_.get());
  timeline_.emplace(tv);
  fileTime_ = 0;
  if (failed_) LOG_INFO("Recording goes on");
  failed_ = false;
}

void Recorder::write(MediaFile::Track track, const uint8_t* data, std::size_t size,
                     const timeval& tv, bool key) {
  if (!file_ || !file_->has(track) || size == 0) return;
  const auto time = timeline_->at(track, tv);
  if (!time) return;
  fileTime_ = std::max(fileTime_, *time);
  if (!file_->write(track, data, size, *time, key)) {
    if (!saidRefused_) LOG_WARN("Frames that do not fit their codec are not recorded");
    saidRefused_ = true;
  }
}

void Recorder::finishFile() {
  if (!file_) return;
  const std::unique_ptr<MediaFile> ended = std::move(file_);
  ended->finish();
}

std::string Recorder::fileName(const timeval& tv) const {
  tm utc{};
  gmtime_r(&tv.tv_sec, &utc);
  char stamp[32];
  strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
  const std::string base = options_.folder + "/" + options_.deviceId + "-" + stamp;
  std::string name = base + ".mkv";
  // A second file of the same second leaves the first alone.
  for (int again = 2; access(name.c_str(), F_OK) == 0; ++again) {
    name = base + "-" + std::to_string(again) + ".mkv";
  }
  return name;
}

template <class Work>
void Recorder::inDatabase(Work work) {
  try {
    if (!database_) {
      std::filesystem::create_directories(options_.folder);
      database_ = std::make_unique<MetadataDatabase>(options_.folder);
    }
    work(*database_);
    databaseFailed_ = false;
  } catch (const std::exception& failure) {
    if (!databaseFailed_) LOG_ERROR("Metadata is not stored: %s", failure.what());
    databaseFailed_ = true;
  }
}

void Recorder::write(const std::string& deviceId, const timeval& tv, const std::string& name,
                     const std::string& record) {
  const std::lock_guard<std::mutex> held(mutex_);
  if (closed_) return;
  inDatabase([&](MetadataDatabase& database) { database.addRecord(deviceId, tv, name, record); });
}

void Recorder::close() {
  std::unique_lock<std::mutex> held(mutex_, std::try_to_lock);
  const auto patience = Clock::now() + kClosePatience;
  while (!held && Clock::now() < patience) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    held.try_lock();
  }
  if (!held) {
    LOG_WARN("The recording is left without its index: a write has not come back");
    return;
  }
  if (closed_) return;
  closed_ = true;
  guarded([&] {
    if (assembler_) assembler_->flush();
    finishFile();
  });
  database_.reset();
}

}  // namespace host

extern "C" host::Recording* mretriever_openRecording(const host::RecordingOptions& options) {
  return new host::Recorder(options);  // lives until the process ends
}
