#include "Senders.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "support/Deadline.h"

namespace testsupport {

using Kelvane::UniqueFd;

namespace {

sockaddr_in nameOf(const std::string& address, int port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) {
    throw std::runtime_error("no address: " + address);
  }
  return name;
}

}  // namespace

UdpSender::UdpSender(int port, const std::string& address)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const unsigned char ttl = 0;
  setsockopt(fd_.get(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl);
  const sockaddr_in name = nameOf(address, port);
  if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
    throw std::runtime_error("could not connect to " + address);
  }
}

void UdpSender::send(const std::string& datagram) {
  // A refusal of an earlier datagram is reported once; then this one goes out.
  for (int tries = 0; tries < 2; ++tries) {
    if (::send(fd_.get(), datagram.data(), datagram.size(), 0) >= 0) return;
  }
}

std::string rtp(int payloadType, int sequence, const std::string& payload, bool marker) {
  std::string packet = {'\x80',
                        static_cast<char>(payloadType | (marker ? 0x80 : 0)),
                        static_cast<char>(sequence >> 8),
                        static_cast<char>(sequence),
                        0,
                        0,
                        static_cast<char>(sequence >> 8),
                        static_cast<char>(sequence),
                        1,
                        2,
                        3,
                        4};
  return packet + payload;
}

bool udpPortBound(int port) {
  std::ostringstream wanted;
  wanted << ":" << std::uppercase << std::hex << std::setw(4) << std::setfill('0') << port
         << " 00000000:0000";
  std::ifstream table("/proc/net/udp");
  std::stringstream text;
  text << table.rdbuf();
  return text.str().find(wanted.str()) != std::string::npos;
}

bool awaitUdpPort(int port) {
  return eventually([port] { return udpPortBound(port); });
}

HeldPort::HeldPort(int wanted) : fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in name = nameOf("0.0.0.0", wanted);
  socklen_t length = sizeof name;
  auto* generic = reinterpret_cast<sockaddr*>(&name);
  if (bind(fd.get(), generic, length) != 0) throw std::runtime_error("could not hold a port");
  getsockname(fd.get(), generic, &length);
  port = ntohs(name.sin_port);
}

std::unique_ptr<Subprocess> ffmpegSender(const std::string& video, const std::string& audio,
                                         const std::string& output) {
  std::string line = "ffmpeg -v error -nostdin -re -f lavfi -i testsrc2=size=352x288:rate=25 ";
  if (!audio.empty()) line += "-re -f lavfi -i sine=frequency=440:sample_rate=44100 ";
  line += video + " -g 10 -bf 0 -threads 1 " + audio + " " + output;
  std::vector<std::string> words;
  std::istringstream stream(line);
  for (std::string word; stream >> word;) words.push_back(word);
  return std::make_unique<Subprocess>(words);
}

}  // namespace testsupport
