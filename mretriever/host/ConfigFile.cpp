#include "ConfigFile.h"

#include <cerrno>
#include <fstream>
#include <system_error>

namespace host {

namespace {

std::string trimmed(const std::string& text) {
  constexpr const char* kBlanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

[[noreturn]] void unreadable(const std::string& name) {
  throw UsageError(name +
                   ": could not read the configuration: " + std::generic_category().message(errno));
}

}  // namespace

Settings parseConfig(std::istream& input, const std::string& name) {
  Settings settings;
  std::string line;
  for (unsigned number = 1; std::getline(input, line); ++number) {
    const std::string where = name + ":" + std::to_string(number) + ": ";
    if (number == 1 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
    const std::string content = trimmed(line);
    if (content.empty() || content[0] == '#') continue;
    const std::size_t equals = content.find('=');
    if (equals == std::string::npos) throw UsageError(where + "a line must be KEY=VALUE");
    const std::string key = trimmed(content.substr(0, equals));
    if (key.empty()) throw UsageError(where + "no key ahead of the '='");
    settings.emplace_back(key, trimmed(content.substr(equals + 1)));
  }
  return settings;
}

Settings readConfigFile(const std::string& name) {
  errno = 0;
  std::ifstream file(name, std::ios::binary);
  if (!file) unreadable(name);
  Settings settings = parseConfig(file, name);
  if (file.bad()) unreadable(name);  // a folder, say
  return settings;
}

}  // namespace host
