#include "HttpRequest.h"

#include <unistd.h>

#include <stdexcept>

#include "Cfg.h"
#include "DeviceConnection.h"
#include "Exceptions.h"
#include "FailureReport.h"
#include "HttpBasicAuth.h"

namespace Kelvane {

namespace {

int httpPort() {
  try {
    return Cfg::i_value("HTTP_PORT");
  } catch (const std::invalid_argument&) {
    return 80;
  }
}

}  // namespace

std::string configuredAuthorization() {
  const std::string user = Cfg::value("USRNAME");
  return user.empty() ? "" : basicAuthorization(user, Cfg::value("PASSWD"));
}

std::string buildGetRequest(const std::string& headers) {
  const std::string target = Cfg::value("HTTP_URL");
  const std::string host = Cfg::value("DEVIP");
  return "GET " + target + " HTTP/1.0\r\nHost: " + host + "\r\n" + headers + "\r\n";
}

UniqueFd connectToHttpDevice() {
  const int port = httpPort();
  DeviceConnection connection = connectToDevice(Cfg::value("DEVIP"), port);
  if (!connection.failure.empty()) FATAL_REPORT("%s", connection.failure.c_str());
  return std::move(connection.socket);
}

void sendRequest(int socket, const std::string& request) {
  if (write(socket, request.data(), request.size()) <= 0) {
    const auto reason = last_error_message();
    FATAL_REPORT("CRT-5010 Failed write into socket: %s", reason->c_str());
  }
}

}  // namespace Kelvane
