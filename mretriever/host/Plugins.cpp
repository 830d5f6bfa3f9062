#include "Plugins.h"

#include <dlfcn.h>

#include <stdexcept>

namespace host {

namespace {

// Found through the program's RUNPATH; never closed.
template <class Function>
Function* symbolOf(const char* library, const char* symbol) {
  void* object = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  void* found = object == nullptr ? nullptr : dlsym(object, symbol);
  if (found == nullptr) throw std::runtime_error(std::string("Could not load ") + dlerror());
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
