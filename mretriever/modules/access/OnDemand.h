#pragma once

namespace Kelvane {

// A function of one of the module's own shared objects that only some cameras
// need; it is loaded from the folder of the module. A failure is a plain fatal exit.
void* onDemandSymbol(const char* library, const char* symbol);

template <class Function>
Function* onDemand(const char* library, const char* symbol) {
  return reinterpret_cast<Function*>(onDemandSymbol(library, symbol));
}

}  // namespace Kelvane
