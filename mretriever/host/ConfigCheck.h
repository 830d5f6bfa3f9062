#pragma once

#include <string>

#include "ConfigFile.h"

namespace host {

// What a configuration amounts to, without connecting to anything.
struct ConfigReport {
  std::string text;  // for the operator, several lines
  unsigned problems = 0;
};

// Which producer the settings select and why, which keys it reads, and which
// are missing, unknown, not read or out of range. Puts the settings into Cfg.
ConfigReport checkConfig(const Settings& settings);

}  // namespace host
