#include "DeviceConnection.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "AccessLog.h"
#include "Exceptions.h"

namespace Kelvane {

namespace {

DeviceConnection failed(const std::string& text) {
  return {UniqueFd(), text};
}

// gethostbyname() keeps its answer in one place for all threads; its reentrant
// form needs room, which grows on demand.
struct Resolver {
  hostent entry{};
  hostent* result = nullptr;
  int error = 0;
  std::vector<char> room = std::vector<char>(1024);

  explicit Resolver(const std::string& host) {
    while (gethostbyname_r(host.c_str(), &entry, room.data(), room.size(), &result, &error) ==
           ERANGE) {
      room.resize(room.size() * 2);
    }
  }
};

}  // namespace

DeviceConnection connectToDevice(const std::string& host, int port) {
  UniqueFd connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!connection) return failed("CRT-5006 socket() error: " + *last_error_message());

  const Resolver resolver(host);
  if (resolver.result == nullptr) {
    return failed(std::string("CRT-5007 gethostbyname() error: ") + hstrerror(resolver.error));
  }

  for (char** address = resolver.result->h_addr_list; *address != nullptr; ++address) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(port));
    char text[INET6_ADDRSTRLEN];
    if (inet_ntop(AF_INET, *address, text, sizeof text) == nullptr) {
      return failed("CRT-5008 inet_ntop() error: " + *last_error_message());
    }
    to.sin_addr.s_addr = inet_addr(text);
    LOG_DEBUG("Trying to connect to %s:%d", text, port);
    if (connect(connection.get(), reinterpret_cast<sockaddr*>(&to), sizeof to) == 0) {
      return {std::move(connection), ""};
    }
    const auto reason = last_error_message();
    LOG_DEBUG("connect() fails: %s", reason->c_str());
  }
  return failed("CRT-5009 Unable to connect() to " + host);
}

}  // namespace Kelvane
