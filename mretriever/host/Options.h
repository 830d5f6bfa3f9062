#pragma once

#include <optional>
#include <string>

#include "ConfigFile.h"

namespace host {

// The command line, with the configuration file already read.
struct Options {
  Settings settings;  // later ones win
  std::string recordFolder;
  double segmentSeconds = 3600;
  std::string traceFile;  // "-": standard output
  int logLevel;           // as in log4cpp::Priority
  bool logCategory = true;
  std::optional<double> durationSeconds;
  double stopGraceSeconds = 3;
  std::string stateSocket;
  std::string broker;
  bool checkConfig = false;
};

// Nothing when the command line asks for help or the version, which have then
// been printed. Throws UsageError.
std::optional<Options> parseOptions(int argc, const char* const* argv);

}  // namespace host
