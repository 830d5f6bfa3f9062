// The configuration file. What is accepted has keys, and reads back as itself.
#include <cstdint>
#include <sstream>
#include <string>

#include "Cfg.h"
#include "ConfigFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream file(std::string(reinterpret_cast<const char*>(data), size));
  host::Settings settings;
  try {
    settings = host::parseConfig(file, "camera.conf");
  } catch (const host::UsageError&) {
    return 0;
  }
  Kelvane::Cfg::clear();
  std::string again = "#\n";  // the mark of UTF-8 is taken off a first line
  for (const auto& [key, value] : settings) {
    if (key.empty() || key.find('\n') != std::string::npos) __builtin_trap();
    Kelvane::Cfg::insert(key, value);
    if (Kelvane::Cfg::value(key) != value) __builtin_trap();
    try {
      Kelvane::Cfg::f_value(key);
      Kelvane::Cfg::i_value(key);
    } catch (const std::invalid_argument&) {
    }
    again += key + "=" + value + "\n";
  }
  std::istringstream copy(again);
  if (host::parseConfig(copy, "copy") != settings) __builtin_trap();
  return 0;
}
