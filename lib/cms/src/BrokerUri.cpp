#include "BrokerUri.h"

#include <algorithm>
#include <charconv>

#include "cms/CMSException.h"

namespace cms::openwire {
namespace {

constexpr char kFailover[] = "failover:";
constexpr char kTcp[] = "tcp://";

// What may be shown: a password stands behind the first question mark.
std::string withoutQuery(const std::string& text) {
  return text.substr(0, text.find('?'));
}

[[noreturn]] void reject(const std::string& text, const std::string& why) {
  throw CMSException("broker address \"" + withoutQuery(text) + "\": " + why);
}

// A value with its %41 and the like decoded.
std::string decoded(const std::string& uri, const std::string& key, const std::string& value) {
  std::string out;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] != '%') {
      out += value[i];
      continue;
    }
    const char* const digits = value.data() + i + 1;
    const char* const last = value.data() + std::min(value.size(), i + 3);
    unsigned char byte = 0;
    const auto [end, error] = std::from_chars(digits, last, byte, 16);
    if (error != std::errc() || end != digits + 2) reject(uri, key + ": % without two digits");
    out += static_cast<char>(byte);
    i += 2;
  }
  return out;
}

int number(const std::string& uri, const std::string& key, const std::string& value,
           const std::string& kind) {
  int read = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), read);
  if (error != std::errc() || end != value.data() + value.size() || read < 0)
    reject(uri, key + " is no " + kind + ": " + value);
  return read;
}

int milliseconds(const std::string& uri, const std::string& key, const std::string& value) {
  return number(uri, key, value, "number of milliseconds");
}

void applyOptions(BrokerUri& uri, const std::string& text, std::string options) {
  while (!options.empty()) {
    const std::size_t end = options.find('&');
    const std::string option = options.substr(0, end);
    options.erase(0, end == std::string::npos ? end : end + 1);
    const std::size_t equals = option.find('=');
    const std::string key = option.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : option.substr(equals + 1);
    if (key == "soTimeout") {
      const int limit = milliseconds(text, key, value);
      if (limit > 0) uri.answerLimitMs = limit;
    } else if (key == "timeout") {
      uri.sendLimitMs = milliseconds(text, key, value);
    } else if (key == "startupMaxReconnectAttempts") {
      uri.firstRounds = number(text, key, value, "number");
    } else if (key == "username") {
      uri.user = decoded(text, key, value);
    } else if (key == "password") {
      uri.password = decoded(text, key, value);
    } else if (key == "wireFormat.maxInactivityDuration") {
      uri.maxInactivityMs = milliseconds(text, key, value);
    }
  }
}

// "tcp://host:port[?options]", the host an IPv6 address in brackets perhaps.
void addEndpoint(BrokerUri& uri, const std::string& text, const std::string& endpoint) {
  if (endpoint.compare(0, sizeof kTcp - 1, kTcp) != 0)
    reject(text, "only tcp:// is supported: " + withoutQuery(endpoint));
  const std::size_t query = endpoint.find('?');
  std::string address = endpoint.substr(sizeof kTcp - 1, query - (sizeof kTcp - 1));
  if (!address.empty() && address.back() == '/') address.pop_back();
  const std::size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon == 0)
    reject(text, "host:port expected: " + withoutQuery(endpoint));
  std::string host = address.substr(0, colon);
  if (host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  const std::string port = address.substr(colon + 1);
  int number = 0;
  const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
  if (error != std::errc() || end != port.data() + port.size() || number < 1 || number > 65535)
    reject(text, "no port number: " + port);
  uri.endpoints.push_back({host, port});
  if (query != std::string::npos) applyOptions(uri, text, endpoint.substr(query + 1));
}

}  // namespace

BrokerUri parseBrokerUri(const std::string& text) {
  BrokerUri uri;
  if (text.compare(0, sizeof kFailover - 1, kFailover) != 0) {
    addEndpoint(uri, text, text);
    return uri;
  }
  uri.failover = true;
  std::string list = text.substr(sizeof kFailover - 1);
  if (list.compare(0, 2, "//") == 0) list.erase(0, 2);
  if (!list.empty() && list.front() == '(') {
    const std::size_t close = list.rfind(')');
    if (close == std::string::npos) reject(text, "no closing parenthesis");
    const std::string behind = list.substr(close + 1);
    if (!behind.empty() && behind.front() != '?')
      reject(text, "unexpected \"" + withoutQuery(behind) + "\"");
    applyOptions(uri, text, behind.empty() ? behind : behind.substr(1));
    list = list.substr(1, close - 1);
  }
  while (true) {
    const std::size_t comma = list.find(',');
    addEndpoint(uri, text, list.substr(0, comma));
    if (comma == std::string::npos) return uri;
    list.erase(0, comma + 1);
  }
}

}  // namespace cms::openwire
