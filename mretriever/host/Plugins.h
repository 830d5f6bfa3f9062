#pragma once

#include <string>

#include "Recording.h"

namespace cms {
class Session;
}

namespace host {

// Parts of the program that are loaded when they are asked for. Each throws
// std::runtime_error when its shared object is missing.
Recording* openRecording(const RecordingOptions& options);
// Also throws what the connection throws. The session lives until the process ends.
cms::Session* openBrokerSession(const std::string& uri);

}  // namespace host
