#include "UdpRelay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <chrono>
#include <stdexcept>

#include "Net.h"

namespace {

sockaddr_in nameOf(const std::string& address, int port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) {
    throw std::runtime_error(address + " is no IPv4 address");
  }
  return name;
}

// The child is killed with this process, however that ends.
pid_t spawn(const std::vector<std::string>& command) {
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("could not fork");
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  return child;
}

}  // namespace

UdpRelay::UdpRelay(const std::string& address, int port, const UdpFaults& faults)
    : faults_(faults),
      in_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      out_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in local = nameOf("127.0.0.1", 0);
  if (bind(in_.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    throw std::runtime_error("no port to relay from");
  }
  port_ = boundPort(in_);
  const int room = 4 * 1024 * 1024;
  setsockopt(in_.get(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  const unsigned char ttl = 0;
  setsockopt(out_.get(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl);
  const sockaddr_in remote = nameOf(address, port);
  if (connect(out_.get(), reinterpret_cast<const sockaddr*>(&remote), sizeof remote) != 0) {
    throw std::runtime_error("no route to " + address);
  }
}

int UdpRelay::run(const std::vector<std::string>& sender) {
  const pid_t child = spawn(sender);
  const auto begin = std::chrono::steady_clock::now();
  int status = 0;
  while (waitpid(child, &status, WNOHANG) == 0) {
    pollfd entry{in_.get(), POLLIN, 0};
    if (poll(&entry, 1, 100) <= 0) continue;
    std::string datagram(65536, '\0');
    const ssize_t size = recv(in_.get(), datagram.data(), datagram.size(), 0);
    if (size < 0) continue;
    datagram.resize(static_cast<std::size_t>(size));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    if (faults_.stallAfter > 0 && passed.count() > faults_.stallAfter) continue;
    relay(datagram);
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

void UdpRelay::relay(const std::string& datagram) {
  if (happens(faults_.garbage)) {
    std::string noise(random_() % 1500, '\0');
    for (char& byte : noise) byte = static_cast<char>(random_());
    send(noise);
  }
  if (happens(faults_.loss)) return;
  if (held_.empty() && happens(faults_.reorder)) {
    held_ = datagram;
    return;
  }
  send(datagram);
  if (!held_.empty()) send(held_);
  held_.clear();
}

// A receiver that is not there yet is no failure of a device that sends unasked.
void UdpRelay::send(const std::string& datagram) const {
  ::send(out_.get(), datagram.data(), datagram.size(), 0);
}

bool UdpRelay::happens(double percent) {
  return std::uniform_real_distribution<double>(0, 100)(random_) < percent;
}
