#pragma once

#include <string>

namespace Kelvane {

// A symbol of one of the shared objects beside the module that only some
// cameras need; null with the reason in `failure` when it cannot be had.
void* symbolBesideModule(const char* library, const char* symbol, std::string& failure);

// The same for a function without which the producer cannot work. A failure is
// a plain fatal exit.
void* onDemandSymbol(const char* library, const char* symbol);

template <class Function>
Function* onDemand(const char* library, const char* symbol) {
  return reinterpret_cast<Function*>(onDemandSymbol(library, symbol));
}

}  // namespace Kelvane
