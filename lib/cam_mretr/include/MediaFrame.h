#pragma once

#include <ace/Refcounted_Auto_Ptr.h>
#include <ace/Thread_Mutex.h>
#include <sys/time.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "Resource.h"

struct AVFrame;

namespace Kelvane {

class Module;

enum MEDIA_TYPE { AUDIO = 0, VIDEO = 1, METADATA = 2 };
enum ANALYSIS_STATUS {
  STATUS_NONE = 0,
  STATUS_PROCESSED = 1,
  STATUS_SKIPPED = 2,
  STATUS_ERROR = 3
};
enum TRIGGER { NONE = 0, MOTION = 1, INPUT = 2 };

// One frame on its way through the processing tree. Made on the heap and
// wrapped in a CPMediaFrame at once; never copied.
struct MediaFrame {
  // `payload` comes from malloc and is owned from here on, unless reuseData is set.
  MediaFrame(uint8_t* payload, uint32_t bytes, MEDIA_TYPE type)
      : data(payload), size(bytes), allocSize(bytes), mediaType(type) {}
  ~MediaFrame() {
    if (data != nullptr && !reuseData) free(data);
  }
  MediaFrame(const MediaFrame&) = delete;
  MediaFrame& operator=(const MediaFrame&) = delete;

  uint8_t* data = nullptr;
  uint32_t size = 0;  // bytes
  bool reuseData = false;
  uint32_t allocSize;  // bytes allocated behind data
  bool isMD = false;   // motion detected
  bool isEventHappened = false;
  std::string eventMessage;
  std::string analyticsSchema;
  MEDIA_TYPE mediaType;
  uint8_t bitsPerSample = 8;
  uint8_t numChannels = 1;
  uint32_t samplingFrequency = 8000;  // Hz
  uint16_t width = 0;
  uint16_t height = 0;
  timeval tv{};  // presentation time
  time_t chunkTime = 0;
  std::string objectsData;  // JSON of a metadata frame
  std::string proxyHeader;
  ANALYSIS_STATUS analysisStatus = STATUS_NONE;
  TRIGGER trigger = NONE;
  Module* owner = nullptr;
  std::vector<std::string> geoEventNotify;
  Resource<AVFrame> decoded_pic;
};

// The only way in which a frame is shared; the last handle destroys it.
using CPMediaFrame = ACE_Refcounted_Auto_Ptr<MediaFrame, ACE_Thread_Mutex>;

}  // namespace Kelvane
