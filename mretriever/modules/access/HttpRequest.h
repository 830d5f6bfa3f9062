#pragma once

#include <string>

#include "UniqueFd.h"

namespace Kelvane {

// What the HTTP and the Bosch producer share of a request. Failures are fatal
// reports, but for an absent key, which throws std::invalid_argument.

// The Authorization header from USRNAME and PASSWD, which is read only when
// USRNAME is not empty. Empty for a camera without login.
std::string configuredAuthorization();

// "GET HTTP_URL HTTP/1.0" with the Host header; `headers` are whole lines.
std::string buildGetRequest(const std::string& headers);

// A connection to DEVIP at HTTP_PORT, 80 when that is absent or no number.
UniqueFd connectToHttpDevice();

// One write. A short one goes unnoticed.
void sendRequest(int socket, const std::string& request);

}  // namespace Kelvane
