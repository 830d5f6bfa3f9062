// What --check-config says to any configuration text: the problems are those
// that it counts, what is no problem does not end the process, and the password
// is not in it.
#include <cstdint>
#include <sstream>
#include <string>

#include "Cfg.h"
#include "ConfigCheck.h"

namespace {

host::ConfigReport check(const host::Settings& settings) {
  Kelvane::Cfg::clear();
  return host::checkConfig(settings);
}

bool begins(const std::string& line, const char* with) {
  return line.rfind(with, 0) == 0;
}

// A port, or another number that the producers read as one.
void readsNumber(const std::string& line) {
  const std::size_t begin = line.find(' ') + 1;
  const std::string key = line.substr(begin, line.find('=') - begin);
  if (key == "CAMCOMPRESSION" || key == "CAMERA" || key.find("_PORT") != std::string::npos) {
    Kelvane::Cfg::i_value(key);
  }
}

void judge(const host::ConfigReport& report) {
  std::istringstream text(report.text);
  unsigned problems = 0;
  std::string last;
  for (std::string line; std::getline(text, line); last = line) {
    const bool problem = begins(line, "missing: ") || begins(line, "unknown: ") ||
                         begins(line, "out of range: ") || begins(line, "CRT-5024 ");
    problems += problem ? 1 : 0;
    if (report.problems == 0 && begins(line, "reads: ")) readsNumber(line);
  }
  const std::string count = problems == 0 ? "no" : std::to_string(problems);
  if (problems != report.problems || last != count + (problems == 1 ? " problem" : " problems")) {
    __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream file(std::string(reinterpret_cast<const char*>(data), size));
  host::Settings settings;
  try {
    settings = host::parseConfig(file, "camera.conf");
  } catch (const host::UsageError&) {
    return 0;
  }
  const host::ConfigReport report = check(settings);
  judge(report);
  for (auto& [key, value] : settings) {
    if (key == "PASSWD") value.assign(value.size(), value[0] == 'x' ? 'y' : 'x');
  }
  if (check(settings).text != report.text) __builtin_trap();
  return 0;
}
