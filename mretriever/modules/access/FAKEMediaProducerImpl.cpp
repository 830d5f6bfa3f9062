#include "FAKEMediaProducerImpl.h"

#include <sys/time.h>

#include <cstdio>
#include <memory>
#include <string>

#include "Cfg.h"
#include "ChunkStorage.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "FramePacer.h"
#include "KeyFrame.h"
#include "Retriever.h"

namespace Kelvane {

namespace {

template <class Storage>
std::unique_ptr<ChunkStorageImpl> make() {
  return std::make_unique<Storage>();
}

struct Format {
  const char* name;
  const char* extension;
  std::unique_ptr<ChunkStorageImpl> (*reader)();
};

constexpr Format kFormats[] = {
    {"mjpg", ".mjpg", make<MJPGChunkStorageImpl>},
    {"mpeg4", ".m4v", make<M4VChunkStorageImpl>},
    {"h264", ".h264", make<H264ChunkStorageImpl>},
    {"mpeg2", ".mpg", make<MPEG2ChunkStorageImpl>},
};

const Format& formatOf(const std::string& name) {
  for (const Format& format : kFormats) {
    if (name == format.name) return format;
  }
  FATAL_REPORT("Unsupported media format: %s", name.c_str());
}

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};

}  // namespace

bool FAKEMediaProducerImpl::start() {
  const Retriever* retriever = Retriever::instance(nullptr, nullptr, nullptr, nullptr);
  const std::string source = Cfg::value("SOURCE");
  const std::string mediaFormat = Cfg::value("MEDIA_FORMAT");
  const Format& format = formatOf(mediaFormat);
  const std::string name = source + format.extension;
  const auto reader = format.reader();
  StorageAPI::FrameExtraInfo info;
  FramePacer pacer;

  LOG_INFO("CRT-0000 Entering to loop to receive video stream");
  while (!retriever->isStopped()) {
    const std::unique_ptr<FILE, CloseFile> file(fopen64(name.c_str(), "r"));
    if (!file) {
      const auto reason = last_error_message();
      FATAL_REPORT("Could not open file %s: %s", name.c_str(), reason->c_str());
    }
    bool skipToKeyFrame = true;
    while (!retriever->isStopped()) {
      timeval tv{};
      gettimeofday(&tv, nullptr);
      const int bytes =
          reader->readFrame(file.get(), vSink_->buffer, AbstractSink::kBufferSize, &info);
      if (bytes <= 0) break;  // once more from the head, without a pause
      const auto size = static_cast<unsigned>(bytes);
      if (skipToKeyFrame && !isI_VOP(vSink_->buffer, size, mediaFormat)) {
        LOG_DEBUG("Skiping to I-frame");
        continue;
      }
      vSink_->addData(vSink_->buffer, size, tv);
      const Delay_Interval wait = pacer.next(tv, retriever->framerate());
      if (wait != ZERO) delay(wait);
      skipToKeyFrame = false;
    }
  }
  return true;
}

}  // namespace Kelvane
