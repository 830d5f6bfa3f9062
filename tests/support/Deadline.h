#pragma once

#include <poll.h>

#include <chrono>

namespace testsupport {

// Waiting with an end: generous, because sanitized builds share two cores.
constexpr std::chrono::seconds kPatience{20};

// Polls until `done()` holds; false when the patience ran out.
template <class Done>
bool eventually(Done done, std::chrono::milliseconds patience = kPatience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    poll(nullptr, 0, 5);
  }
  return true;
}

}  // namespace testsupport
