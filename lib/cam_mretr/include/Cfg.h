#pragma once

#include <string>
#include <vector>

namespace Kelvane {

// The camera's configuration: one store for the process, usable from any
// thread at any time. A key that is absent, or whose value is not a number
// where one is asked for, throws std::invalid_argument that names the key.
class Cfg {
 public:
  static bool exist(const std::string& key);
  static std::string value(const std::string& key);
  static int i_value(const std::string& key);
  static float f_value(const std::string& key);

  static void insert(const std::string& key, const std::string& value);
  static void insert(const std::string& key, const char* value) { insert(key, std::string(value)); }
  static void insert(const std::string& key, int value);
  static void insert(const std::string& key, double value);

  static void dump();  // to standard error, passwords masked
  static std::vector<std::string> keys();
  static void clear();
};

}  // namespace Kelvane
