#pragma once

#include <istream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace host {

// What is wrong with the command line or the configuration, in one line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using Settings = std::vector<std::pair<std::string, std::string>>;

// One KEY=VALUE a line, in the order of the lines. Blank lines and comments
// (#) are passed over; a line that is none of these is a UsageError that names
// `name` and the line.
Settings parseConfig(std::istream& input, const std::string& name);
Settings readConfigFile(const std::string& name);

}  // namespace host
