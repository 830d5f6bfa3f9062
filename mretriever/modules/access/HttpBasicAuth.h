#pragma once

#include <string>

namespace Kelvane {

// The whole header line "Authorization: Basic ...\r\n"; empty for an empty user.
std::string basicAuthorization(const std::string& user, const std::string& password);

}  // namespace Kelvane
