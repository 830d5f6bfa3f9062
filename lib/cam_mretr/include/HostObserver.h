#pragma once

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "MediaFrame.h"
#include "StreamState.h"

namespace Kelvane {

// What the module hands over to the host, as it happens. Calls come from any
// thread, some of them right before the process exits: write at once.
class HostObserver {
 public:
  virtual ~HostObserver() = default;
  // A concrete sink was initialised. `config` are codec configuration bytes.
  virtual void onInit(MEDIA_TYPE, const std::string& codec, const std::string& config) = 0;
  virtual void onFrame(const MediaFrame&) = 0;
  virtual void onTrigger(const std::string& text) = 0;
  virtual void onState(StreamState::STATE, StreamState::ERRNO) = 0;
  virtual void onPid(bool first, bool second) = 0;
  // `record` is a JSON value.
  virtual void onExtraData(const std::string& name, const timeval& tv,
                           const std::string& record) = 0;
};

// Where metadata records are kept. One for the process.
class MetadataStore {
 public:
  virtual ~MetadataStore() = default;
  // `record` is a JSON value.
  virtual void write(const std::string& deviceId, const timeval& tv, const std::string& name,
                     const std::string& record) = 0;
};

// Null until the program sets them; they must then live until the process ends.
void setHostObserver(HostObserver* observer);
HostObserver* hostObserver();
void setMetadataStore(MetadataStore* store);
MetadataStore* metadataStore();

}  // namespace Kelvane
