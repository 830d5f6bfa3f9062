#pragma once

#include <cstddef>
#include <log4cpp/Priority.hh>

// Logging of the module, in .cpp files only:
//
//   LOG_ERROR("CRT-5004 Failed to set SO_RCVBUF size: %s", text->c_str());
//
// Arguments are evaluated only when the level is enabled. A system error text
// is taken into a local first: formatting may change errno.
#define LOG_AT(level, ...)                                                              \
  do {                                                                                  \
    if (::Kelvane::logEnabled(level)) {                                                 \
      ::Kelvane::logWrite(level, ::Kelvane::baseName(__FILE__), __LINE__, __VA_ARGS__); \
    }                                                                                   \
  } while (false)
#define LOG_ERROR(...) LOG_AT(::log4cpp::Priority::ERROR, __VA_ARGS__)
#define LOG_WARN(...) LOG_AT(::log4cpp::Priority::WARN, __VA_ARGS__)
#define LOG_INFO(...) LOG_AT(::log4cpp::Priority::INFO, __VA_ARGS__)
#define LOG_DEBUG(...) LOG_AT(::log4cpp::Priority::DEBUG, __VA_ARGS__)

namespace Kelvane {

constexpr const char* baseName(const char* path) {
  const char* base = path;
  for (const char* at = path; *at != '\0'; ++at) {
    if (*at == '/') base = at + 1;
  }
  return base;
}

// True without a log category: the fallback form is written at any level.
bool logEnabled(int level);

// One line "[device id] file line text" to the log category; without one
// "<UTC time> LEVEL - file line text" to standard error.
void logWrite(int level, const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// The two FATAL lines differ in their fallback form only: a stream failure
// carries the device id.
enum class FatalForm { plain, streamFailure };
void logFatal(FatalForm form, const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace Kelvane
