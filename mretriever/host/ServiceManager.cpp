#include "ServiceManager.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>

#include "AccessLog.h"
#include "Exceptions.h"
#include "UniqueFd.h"

namespace host {

namespace {

std::string variable(const char* name) {
  const char* value = getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

ServiceManager::ServiceManager() : socket_(variable("NOTIFY_SOCKET")) {
  const long long micros = atoll(variable("WATCHDOG_USEC").c_str());
  // Half the time that the manager allows, as it recommends.
  if (!socket_.empty() && micros >= 4000) interval_ = std::chrono::milliseconds(micros / 2000);
}

void ServiceManager::ready() {
  send("READY=1\nSTATUS=Receiving");
}

void ServiceManager::stopping() {
  send("STOPPING=1");
}

void ServiceManager::tick() {
  if (alive_.exchange(false)) send("WATCHDOG=1");
}

void ServiceManager::send(const std::string& text) const {
  if (socket_.empty()) return;
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  if (socket_.size() >= sizeof name.sun_path) return;
  socket_.copy(name.sun_path, sizeof name.sun_path - 1);
  if (name.sun_path[0] == '@') name.sun_path[0] = '\0';  // an abstract name
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  const Kelvane::UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (sendto(socket.get(), text.data(), text.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&name), length) < 0) {
    const auto reason = Kelvane::last_error_message();
    LOG_WARN("Could not notify the service manager: %s", reason->c_str());
  }
}

}  // namespace host
