#include "OnDemand.h"

#include <dlfcn.h>

#include "FailureReport.h"

namespace Kelvane {

void* onDemandSymbol(const char* library, const char* symbol) {
  // Never closed: objects of its classes live until the process ends.
  void* object = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  void* found = object == nullptr ? nullptr : dlsym(object, symbol);
  if (found == nullptr) FATAL_EXIT("Could not load %s from %s: %s", symbol, library, dlerror());
  return found;
}

}  // namespace Kelvane
