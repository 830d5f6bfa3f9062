#pragma once

#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace Kelvane {

// Header lines as devices write them, each a terminated text with its line end.

// "\r\n" or "\n" and nothing else.
inline bool isBlankLine(const char* line) {
  return strcmp(line, "\r\n") == 0 || strcmp(line, "\n") == 0;
}

// The text behind `name` ("Content-Length:"), blanks passed over; null when the
// line begins with something else. Case matters, and no blank stands ahead.
inline const char* headerText(const char* line, const char* name) {
  const std::size_t size = strlen(name);
  if (strncmp(line, name, size) != 0) return nullptr;
  return line + size + strspn(line + size, " \t\n\v\f\r");
}

// The number there; anything may follow it. One that an int cannot hold becomes
// the nearest that it can.
inline std::optional<int> headerNumber(const char* line, const char* name) {
  const char* text = headerText(line, name);
  if (text == nullptr) return std::nullopt;
  char* end = nullptr;
  const long number = strtol(text, &end, 10);
  if (end == text) return std::nullopt;
  return static_cast<int>(number < INT_MIN ? INT_MIN : number > INT_MAX ? INT_MAX : number);
}

}  // namespace Kelvane
