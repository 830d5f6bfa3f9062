#pragma once

#include <string>

namespace Kelvane {

// Keeps a camera's snapshot file present and fresh: touches the one that is
// there, whoever wrote it, or copies the placeholder picture (its first 65536
// bytes). Failures are logged; the next run tries again.
void refreshSnapshot(const std::string& snapshot, const char* placeholder);

}  // namespace Kelvane
