#include "PushInHeaders.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

namespace Kelvane {

namespace {

constexpr std::size_t kMessageBytes = 247;

// A number too large for an int stays large instead of wrapping around.
bool storeContentLength(const char* value, PushInHeaders& headers) {
  long length = 0;
  if (sscanf(value, "%ld", &length) != 1) return false;
  headers.contentLength = static_cast<int>(std::clamp<long>(length, INT_MIN, INT_MAX));
  return true;
}

bool storeContentType(const char* value, PushInHeaders& headers) {
  char word[PushInHeaders::kTextSize] = {};
  if (sscanf(value, "%255s", word) != 1) return false;
  memcpy(headers.contentType, word, sizeof word);
  return true;
}

template <float PushInHeaders::*field>
bool storeFloat(const char* value, PushInHeaders& headers) {
  return sscanf(value, "%f", &(headers.*field)) == 1;
}

// A word has to be there, but what is kept is the line behind one blank.
bool storeMessage(const char* value, PushInHeaders& headers) {
  char first[2];
  if (sscanf(value, "%1s", first) != 1) return false;
  const char* text = value + 1;
  memset(headers.message, 0, sizeof headers.message);
  memcpy(headers.message, text, strnlen(text, kMessageBytes));
  return true;
}

bool storeTimestamp(const char* value, PushInHeaders& headers) {
  long seconds = 0;
  long useconds = 0;
  if (sscanf(value, "%ld.%ld", &seconds, &useconds) != 2) return false;
  headers.seconds = seconds;
  headers.useconds = useconds;
  headers.hasTimestamp = true;
  return true;
}

// Names are anchored at the start of the line and case-sensitive; any white
// space, also none, may stand between the colon and the value.
struct Header {
  std::string_view name;
  bool (*store)(const char* value, PushInHeaders& headers);
};
constexpr Header kHeaders[] = {
    {"Content-Length:", storeContentLength},
    {"Content-length:", storeContentLength},
    {"Content-Type:", storeContentType},
    {"GEO_Latitude:", storeFloat<&PushInHeaders::latitude>},
    {"GEO_Longitude:", storeFloat<&PushInHeaders::longitude>},
    {"GEO_Altitude:", storeFloat<&PushInHeaders::altitude>},
    {"Message:", storeMessage},
    {"Timestamp:", storeTimestamp},
};

// A header's name that the end of a datagram cut off.
bool beginsName(std::string_view text) {
  return !text.empty() && std::any_of(std::begin(kHeaders), std::end(kHeaders), [&](const auto& h) {
    return h.name.substr(0, text.size()) == text;
  });
}

}  // namespace

bool parseHeaderLine(const char* line, PushInHeaders& headers) {
  for (const Header& header : kHeaders) {
    if (strncmp(line, header.name.data(), header.name.size()) == 0) {
      return header.store(line + header.name.size(), headers);
    }
  }
  return false;
}

bool endsHeaders(const char* line) {
  return strcmp(line, "\r\n") == 0 || strcmp(line, "\n") == 0;
}

bool startsMessage(std::string_view text) {
  PushInHeaders ignored;
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
    const std::string line(text.substr(0, length));
    if (endsHeaders(line.c_str())) return false;
    if (parseHeaderLine(line.c_str(), ignored) || beginsName(line)) return true;
    text.remove_prefix(length);
  }
  return false;
}

bool correctTime(Time_Val& time, const Time_Val& now, Delay_Interval& timeDiff,
                 bool& timeDiffPlus) {
  if (time == Time_Val(0, 0)) timeDiff = ZERO;
  const bool measured = timeDiff == ZERO;
  if (measured) {
    if (now > time) {
      timeDiff = now - time;
    } else {
      timeDiff = time - now;
      timeDiffPlus = false;
    }
  }
  time = timeDiffPlus ? time + timeDiff : time - timeDiff;
  return measured;
}

}  // namespace Kelvane
