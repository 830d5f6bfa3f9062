#include "FailureReport.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Retriever.h"

namespace Kelvane {

namespace {

// The words that other systems match on; the first row found decides, so the
// closed connection stands ahead of the read error that its text holds too.
constexpr char tmpl_array[][32] = {
    "server closed connection", "error to read from socket", "socket() error",
    "gethostbyname() error",    "inet_ntop() error",         "unable to connect()",
    "failed write into socket", "failed read from socket",   "",
};

constexpr StreamState::ERRNO tmpl_codes[] = {
    StreamState::DEV_CLOSED_SOCKET, StreamState::NET_FAILURE,       StreamState::NET_FAILURE,
    StreamState::NET_FAILURE,       StreamState::NET_FAILURE,       StreamState::NET_FAILURE,
    StreamState::DEV_CLOSED_SOCKET, StreamState::DEV_CLOSED_SOCKET, StreamState::UNK,
};

}  // namespace

FailureClass classifyFailure(const char* text) {
  char lower[256];
  snprintf(lower, sizeof lower, "%s", text);
  for (char* at = lower; *at != '\0'; ++at) {
    *at = static_cast<char>(tolower(static_cast<unsigned char>(*at)));
  }
  std::size_t index = 0;
  while (tmpl_array[index][0] != '\0' && strstr(lower, tmpl_array[index]) == nullptr) ++index;
  return {tmpl_array[index][0] != '\0', tmpl_codes[index]};
}

void reportFailure(StreamState::STATE unmatched, const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  const FailureClass failure = classifyFailure(text);
  Retriever::instance(nullptr, nullptr, nullptr, nullptr)
      ->streamState()
      .setState(failure.matched ? StreamState::STREAM_LOST : unmatched, failure.error, nullptr);
}

}  // namespace Kelvane
