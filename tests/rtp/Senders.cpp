#include "Senders.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <sstream>
#include <stdexcept>

#include "NETMediaProducer.h"

namespace testsupport {

using Kelvane::UniqueFd;

UdpSender::UdpSender(int port, const std::string& address)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const unsigned char ttl = 0;
  setsockopt(fd_.get(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  name.sin_addr.s_addr = inet_addr(address.c_str());
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

Reception::Reception(const TestHost::Keys& keys)
    : host(keys), producer_(select(host)), device_(std::stoi(keys.at("RTP_UNICAST_PORT"))) {
  host.run(*producer_);
  EXPECT_TRUE(awaitPort("udp", std::stoi(keys.at("RTP_UNICAST_PORT")) % 65536));
}

Reception::~Reception() {
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
  EXPECT_TRUE(host.result());
}

std::unique_ptr<Kelvane::NETMediaProducerImpl> select(TestHost& host) {
  return std::unique_ptr<Kelvane::NETMediaProducerImpl>(
      Kelvane::getMediaProducerImplementation(host.audio(), host.video(), host.metadata()));
}

std::unique_ptr<Subprocess> ffmpegSender(const std::string& coding, bool sound,
                                         const std::string& output) {
  std::string line = "ffmpeg -v error -nostdin -re -f lavfi -i testsrc2=size=352x288:rate=25 ";
  if (sound) line += "-re -f lavfi -i sine=frequency=440:sample_rate=44100 ";
  line += coding + " -g 10 -bf 0 -threads 1 " + output;
  std::vector<std::string> words;
  std::istringstream stream(line);
  for (std::string word; stream >> word;) words.push_back(word);
  return std::make_unique<Subprocess>(words);
}

}  // namespace testsupport
