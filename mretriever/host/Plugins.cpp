#include "Plugins.h"

#include <stdexcept>

#include "OnDemand.h"

namespace host {

namespace {

template <class Function>
Function* symbolOf(const char* library, const char* symbol) {
  std::string failure;
  void* found = Kelvane::symbolBesideModule(library, symbol, failure);
  if (found == nullptr) throw std::runtime_error("Could not load " + failure);
  return reinterpret_cast<Function*>(found);
}

}  // namespace

Recording* openRecording(const RecordingOptions& options) {
  return symbolOf<OpenRecording>("libmretriever_record.so", "mretriever_openRecording")(options);
}

cms::Session* openBrokerSession(const std::string& uri) {
  using Open = cms::Session*(const char*);
  return symbolOf<Open>("libmretriever_broker.so", "mretriever_openBrokerSession")(uri.c_str());
}

}  // namespace host
