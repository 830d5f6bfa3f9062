#pragma once

#include <json/writer.h>
#include <sys/time.h>

#include <string>

#include "HostObserver.h"

namespace Kelvane {

// Writes metadata records beside the recording of a device. Header only, so
// that processes without metadata do not load the JSON library.
class StorageMetaDataWriter {
 public:
  // False when this process keeps no store. The second argument is unused.
  bool openCache(const std::string& deviceId, const void* /*unused*/) {
    deviceId_ = deviceId;
    return metadataStore() != nullptr;
  }

  // Only after openCache() said true.
  void writeExtraData(const timeval& tv, const std::string& name, const Json::Value& record) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    const std::string text = Json::writeString(builder, record);
    if (HostObserver* observer = hostObserver()) observer->onExtraData(name, tv, text);
    metadataStore()->write(deviceId_, tv, name, text);
  }

 private:
  std::string deviceId_;
};

}  // namespace Kelvane
