#include "Cfg.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>

namespace Kelvane {

namespace {

struct Store {
  std::shared_mutex mutex;
  std::map<std::string, std::string> values;
};

Store& store() {
  // Never destroyed: worker threads still read keys while the process exits.
  static Store& instance = *new Store;
  return instance;
}

// The whole value must be the number.
bool isWhole(const char* begin, const char* end) {
  return end != begin && *end == '\0';
}

}  // namespace

bool Cfg::exist(const std::string& key) {
  std::shared_lock<std::shared_mutex> held(store().mutex);
  return store().values.count(key) != 0;
}

std::string Cfg::value(const std::string& key) {
  std::shared_lock<std::shared_mutex> held(store().mutex);
  const auto found = store().values.find(key);
  if (found == store().values.end()) {
    throw std::invalid_argument("Configuration key " + key + " is absent");
  }
  return found->second;
}

int Cfg::i_value(const std::string& key) {
  const std::string text = value(key);
  char* end = nullptr;
  errno = 0;
  const long number = strtol(text.c_str(), &end, 10);
  if (!isWhole(text.c_str(), end) || errno != 0 || number < INT_MIN || number > INT_MAX) {
    throw std::invalid_argument("Configuration key " + key + " is not an integer: " + text);
  }
  return static_cast<int>(number);
}

float Cfg::f_value(const std::string& key) {
  const std::string text = value(key);
  char* end = nullptr;
  const float number = strtof(text.c_str(), &end);
  if (!isWhole(text.c_str(), end)) {
    throw std::invalid_argument("Configuration key " + key + " is not a number: " + text);
  }
  return number;
}

void Cfg::insert(const std::string& key, const std::string& value) {
  std::unique_lock<std::shared_mutex> held(store().mutex);
  store().values[key] = value;
}

void Cfg::insert(const std::string& key, int value) {
  insert(key, std::to_string(value));
}

void Cfg::insert(const std::string& key, double value) {
  char text[64];
  snprintf(text, sizeof text, "%.9g", value);
  insert(key, std::string(text));
}

void Cfg::dump() {
  std::shared_lock<std::shared_mutex> held(store().mutex);
  for (const auto& [key, value] : store().values) {
    fprintf(stderr, "%s=%s\n", key.c_str(), key == "PASSWD" ? "***" : value.c_str());
  }
}

std::vector<std::string> Cfg::keys() {
  std::shared_lock<std::shared_mutex> held(store().mutex);
  std::vector<std::string> keys;
  for (const auto& entry : store().values) keys.push_back(entry.first);
  return keys;
}

void Cfg::clear() {
  std::unique_lock<std::shared_mutex> held(store().mutex);
  store().values.clear();
}

}  // namespace Kelvane
