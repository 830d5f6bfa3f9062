#pragma once

#include <string>

#include "HostObserver.h"

namespace host {

struct RecordingOptions {
  std::string folder;
  std::string deviceId;
  std::string mediaFormat;  // the video codec where the module names none
  double segmentSeconds;
};

// The stream on disk: video and audio into media files, metadata into a store.
// Lives in a shared object of its own, so that a camera that is not recorded
// does not pay for the libraries behind it. Any thread. Failures are reported
// at ERROR, once each; the stream goes on.
class Recording : public Kelvane::HostObserver, public Kelvane::MetadataStore {
 public:
  // Ends the files; later events are dropped. Callable while other threads
  // deliver; waits a little for one that is stuck, then gives up.
  virtual void close() = 0;
};

// What libmretriever_record.so exports as mretriever_openRecording.
using OpenRecording = Recording*(const RecordingOptions&);

}  // namespace host
