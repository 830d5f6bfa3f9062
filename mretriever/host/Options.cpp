#include "Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>
#include <log4cpp/Priority.hh>
#include <map>
#include <vector>

namespace host {

namespace {

const std::map<std::string, int>& logLevels() {
  static const std::map<std::string, int> levels{{"DEBUG", log4cpp::Priority::DEBUG},
                                                 {"INFO", log4cpp::Priority::INFO},
                                                 {"WARN", log4cpp::Priority::WARN},
                                                 {"ERROR", log4cpp::Priority::ERROR},
                                                 {"FATAL", log4cpp::Priority::FATAL}};
  return levels;
}

// Some ten years: more than any run, and no overflow in nanoseconds.
constexpr double kLongestSeconds = 3e8;

struct Words {
  std::string configFile;
  std::vector<std::string> settings;
  std::string logLevel = "INFO";
  bool noLogCategory = false;
  double duration = 0;
};

void describe(CLI::App& app, Options& options, Words& words) {
  std::vector<std::string> levelNames{"DEBUG", "INFO", "WARN", "ERROR", "FATAL"};
  app.set_version_flag("--version", "mretriever " MRETRIEVER_VERSION);
  app.add_option("settings", words.settings, "KEY=VALUE: sets or overrides one key")
      ->type_name("KEY=VALUE");
  app.add_option("-c,--config", words.configFile, "camera configuration, one KEY=VALUE a line")
      ->type_name("FILE");
  app.add_option("--record", options.recordFolder, "store the stream as playable files there")
      ->type_name("DIR");
  app.add_option("--segment", options.segmentSeconds, "length of a recorded file [3600]")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.1, kLongestSeconds));
  app.add_option("--trace", options.traceFile, "JSON Lines of all that the module hands over")
      ->type_name("FILE");
  app.add_option("--log-level", words.logLevel, "DEBUG, INFO, WARN, ERROR or FATAL [INFO]")
      ->type_name("LEVEL")
      ->check(CLI::IsMember(levelNames));
  app.add_flag("--no-log-category", words.noLogCategory,
               "no log category: the module's plain lines on standard error");
  app.add_option("--duration", words.duration, "stop after so many seconds")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, kLongestSeconds));
  app.add_option("--stop-grace", options.stopGraceSeconds,
                 "how long the stream may take to end once it is asked to [3]")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, kLongestSeconds));
  app.add_option("--state-socket", options.stateSocket,
                 "Unix datagram socket that stream states are sent to")
      ->type_name("PATH");
  app.add_option("--broker", options.broker, "message broker, for instance tcp://127.0.0.1:61616")
      ->type_name("URI");
  app.add_flag("--check-config", options.checkConfig,
               "tell what the configuration selects, reads and lacks; connect to nothing");
}

std::pair<std::string, std::string> setting(const std::string& word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw UsageError("'" + word + "' is neither an option nor KEY=VALUE");
  }
  return {word.substr(0, equals), word.substr(equals + 1)};
}

}  // namespace

std::optional<Options> parseOptions(int argc, const char* const* argv) {
  CLI::App app("Receives the stream of one camera.", "mretriever");
  Options options{};
  Words words;
  describe(app, options, words);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    if (problem.get_exit_code() != 0) throw UsageError(problem.what());
    app.exit(problem);  // prints the help or the version
    return std::nullopt;
  }
  if (!words.configFile.empty()) options.settings = readConfigFile(words.configFile);
  for (const std::string& word : words.settings) options.settings.push_back(setting(word));
  options.logLevel = logLevels().at(words.logLevel);
  options.logCategory = !words.noLogCategory;
  if (app.count("--duration") > 0) options.durationSeconds = words.duration;
  return options;
}

}  // namespace host
