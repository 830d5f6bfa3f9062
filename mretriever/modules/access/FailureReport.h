#pragma once

#include <cstdlib>

#include "AccessLog.h"
#include "StreamState.h"

// The ways in which a failure ends a stream. The text is formatted twice, for
// the stream state and for the log, so arguments must have no side effects.
//
//   FATAL_REPORT: stream lost, FATAL line, exit(1)
//   FATAL_EXIT:   FATAL line, exit(1); the stream state stays as it is
//   ERROR_REPORT: stream state, ERROR line; the caller goes on
//   SESSION_FATAL_REPORT: as FATAL_REPORT, but the state is UNKNOWN when the
//                 text names no known failure (SOAP faults)
#define FATAL_REPORT(...)                                                                   \
  do {                                                                                      \
    ::Kelvane::reportFailure(::Kelvane::StreamState::STREAM_LOST, __VA_ARGS__);             \
    ::Kelvane::logFatal(::Kelvane::FatalForm::streamFailure, ::Kelvane::baseName(__FILE__), \
                        __LINE__, __VA_ARGS__);                                             \
    exit(1);                                                                                \
  } while (false)
#define SESSION_FATAL_REPORT(...)                                                           \
  do {                                                                                      \
    ::Kelvane::reportFailure(::Kelvane::StreamState::UNKNOWN, __VA_ARGS__);                 \
    ::Kelvane::logFatal(::Kelvane::FatalForm::streamFailure, ::Kelvane::baseName(__FILE__), \
                        __LINE__, __VA_ARGS__);                                             \
    exit(1);                                                                                \
  } while (false)
#define FATAL_EXIT(...)                                                                       \
  do {                                                                                        \
    ::Kelvane::logFatal(::Kelvane::FatalForm::plain, ::Kelvane::baseName(__FILE__), __LINE__, \
                        __VA_ARGS__);                                                         \
    exit(1);                                                                                  \
  } while (false)
#define ERROR_REPORT(...)                                                   \
  do {                                                                      \
    ::Kelvane::reportFailure(::Kelvane::StreamState::UNKNOWN, __VA_ARGS__); \
    LOG_ERROR(__VA_ARGS__);                                                 \
  } while (false)

namespace Kelvane {

struct FailureClass {
  bool matched;
  StreamState::ERRNO error;  // UNK when nothing matched
};

// The state code that follows from a failure's own words, whatever their case.
FailureClass classifyFailure(const char* text);

// Sets (STREAM_LOST, code) when the text matches, else (unmatched, UNK). Only
// the first 255 bytes of the text count.
void reportFailure(StreamState::STATE unmatched, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

}  // namespace Kelvane
