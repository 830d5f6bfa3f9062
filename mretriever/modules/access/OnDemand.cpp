#include "OnDemand.h"

#include <dlfcn.h>

#include "FailureReport.h"

namespace Kelvane {

namespace {

// By its full name: a bare one would be looked up on the run path of whatever
// stands between here and the loader (a sanitizer, for one).
std::string besideThisObject(const char* library) {
  static const char here = 0;
  Dl_info object{};
  if (dladdr(&here, &object) == 0) return library;
  const std::string name = object.dli_fname;
  return name.substr(0, name.rfind('/') + 1) + library;
}

}  // namespace

void* symbolBesideModule(const char* library, const char* symbol, std::string& failure) {
  // Never closed: objects of its classes live until the process ends.
  void* object = dlopen(besideThisObject(library).c_str(), RTLD_NOW | RTLD_LOCAL);
  void* found = object == nullptr ? nullptr : dlsym(object, symbol);
  if (found == nullptr) failure = dlerror();
  return found;
}

void* onDemandSymbol(const char* library, const char* symbol) {
  std::string failure;
  void* found = symbolBesideModule(library, symbol, failure);
  if (found == nullptr) {
    FATAL_EXIT("Could not load %s from %s: %s", symbol, library, failure.c_str());
  }
  return found;
}

}  // namespace Kelvane
