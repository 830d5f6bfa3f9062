#pragma once

#include <string>

namespace Kelvane {

// The host library's own rare log lines: to the log category where it exists,
// otherwise to standard error.
void hostError(const std::string& text);

}  // namespace Kelvane
