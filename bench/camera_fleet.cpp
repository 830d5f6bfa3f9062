// Many RTSP cameras in one cheap process, which leaves the machine's time to the
// programs that are measured: records some pictures of a camera and then plays
// them to any number of clients for ever, over TCP. A picture goes out in one
// write, as a network card hands on the burst of a camera, or in one a packet.
// The clients' turns are spread over a frame's time.
//   camera_fleet picture|packet PORT PATH PICTURES     of the camera on 127.0.0.1
// Prints its own port.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bare_client.h"

namespace {

constexpr std::size_t kFrameHeader = 4;  // '$', channel, length
constexpr std::uint32_t kTicks = 3600;   // of 90 kHz, at 25 pictures a second
constexpr std::chrono::microseconds kFrameTime(40000);
constexpr std::size_t kTurns = 64;  // within a frame's time

std::size_t number(const std::string& bytes, std::size_t at, std::size_t size) {
  std::size_t value = 0;
  for (std::size_t i = 0; i < size; ++i)
    value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

void put(std::string& bytes, std::size_t at, std::size_t value, std::size_t size) {
  for (std::size_t i = size; i-- > 0; value >>= 8) bytes[at + i] = static_cast<char>(value);
}

// Interleaved packets of one picture.
struct Picture {
  std::string bytes;
  std::vector<std::size_t> packets;  // where they begin
};

// The first picture may be the rest of one, and is left out.
std::vector<Picture> record(int fd, std::size_t pictures) {
  std::vector<Picture> made;
  std::string waiting;
  std::array<char, 65536> block{};
  std::size_t timestamp = 0;
  while (made.size() < pictures + 2) {
    const ssize_t got = recv(fd, block.data(), block.size(), 0);
    if (got <= 0) bench::fail("the camera has ended");
    waiting.append(block.data(), static_cast<std::size_t>(got));
    // What comes ahead of the first packet is the answer to PLAY.
    if (made.empty())
      waiting.erase(0, std::min(waiting.find(std::string("$\0", 2)), waiting.size()));
    while (waiting.size() > kFrameHeader &&
           waiting.size() >= kFrameHeader + number(waiting, 2, 2)) {
      const std::size_t size = kFrameHeader + number(waiting, 2, 2);
      if (waiting[1] == 0) {
        if (made.empty() || number(waiting, 8, 4) != timestamp) made.emplace_back();
        timestamp = number(waiting, 8, 4);
        made.back().packets.push_back(made.back().bytes.size());
        made.back().bytes.append(waiting, 0, size);
      }
      waiting.erase(0, size);
    }
  }
  return {made.begin() + 1, made.begin() + 1 + static_cast<std::ptrdiff_t>(pictures)};
}

class Fleet {
 public:
  Fleet(std::string description, std::vector<Picture> pictures, bool packetwise)
      : description_(std::move(description)),
        pictures_(std::move(pictures)),
        packetwise_(packetwise) {}

  // Listens and answers, for ever.
  void serve();
  // Sends the pictures, for ever.
  void play();

 private:
  void accept();
  bool answer(int fd);  // false when the client has gone
  void send(std::size_t turn, const Picture& picture);
  bool write(int fd, const Picture& picture) const;  // false when it has not all gone

  const std::string description_;
  std::vector<Picture> pictures_;
  const bool packetwise_;
  std::vector<pollfd> sockets_;  // the listening one first
  std::mutex mutex_;
  std::map<int, std::size_t> playing_;  // turns
  std::size_t played_ = 0;
};

void Fleet::serve() {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* generic = reinterpret_cast<sockaddr*>(&name);
  socklen_t size = sizeof name;
  if (bind(listener, generic, size) != 0 || listen(listener, SOMAXCONN) != 0 ||
      getsockname(listener, generic, &size) != 0) {
    bench::fail("no port");
  }
  printf("%d\n", ntohs(name.sin_port));
  fflush(stdout);
  sockets_.push_back({listener, POLLIN, 0});
  while (poll(sockets_.data(), sockets_.size(), -1) > 0) {
    for (std::size_t i = sockets_.size(); i-- > 1;) {
      const int fd = sockets_[i].fd;
      if (sockets_[i].revents == 0 || answer(fd)) continue;
      const std::lock_guard<std::mutex> lock(mutex_);
      playing_.erase(fd);
      close(fd);
      sockets_.erase(sockets_.begin() + static_cast<std::ptrdiff_t>(i));
    }
    if (sockets_[0].revents != 0) accept();
  }
}

void Fleet::accept() {
  const int fd = ::accept(sockets_[0].fd, nullptr, nullptr);
  if (fd < 0) return;
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockets_.push_back({fd, POLLIN, 0});
}

bool Fleet::answer(int fd) {
  char text[8192];
  const ssize_t got = recv(fd, text, sizeof text, MSG_DONTWAIT);
  if (got <= 0) return false;
  if (text[0] == '$') return true;  // a receiver's report
  const std::string request(text, static_cast<std::size_t>(got));
  const std::size_t cseq = request.find("CSeq:");
  if (cseq == std::string::npos) return true;
  std::string answer = "RTSP/1.0 200 OK\r\n" +
                       request.substr(cseq, request.find("\r\n", cseq) - cseq) +
                       "\r\nSession: 1\r\n";
  const auto is = [&](const char* method) { return request.rfind(method, 0) == 0; };
  if (is("OPTIONS")) answer += "Public: DESCRIBE, SETUP, PLAY, TEARDOWN\r\n";
  if (is("SETUP")) answer += "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n";
  if (is("DESCRIBE")) {
    const std::string url = request.substr(9, request.find(' ', 9) - 9);
    answer += "Content-Base: " + url + "/\r\nContent-Type: application/sdp\r\nContent-Length: " +
              std::to_string(description_.size()) + "\r\n\r\n" + description_;
  } else {
    answer += "\r\n";
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  if (::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) return false;
  if (is("TEARDOWN")) playing_.erase(fd);
  if (is("PLAY")) playing_[fd] = played_++ % kTurns;
  return true;
}

void Fleet::play() {
  auto due = std::chrono::steady_clock::now();
  std::size_t sequence = 0;
  for (std::size_t count = 0;; ++count) {
    Picture& picture = pictures_[count % pictures_.size()];
    for (const std::size_t at : picture.packets) {
      put(picture.bytes, at + kFrameHeader + 2, sequence++, 2);
      put(picture.bytes, at + kFrameHeader + 4, count * kTicks, 4);
    }
    for (std::size_t turn = 0; turn < kTurns; ++turn) {
      due += kFrameTime / kTurns;
      std::this_thread::sleep_until(due);
      send(turn, picture);
    }
  }
}

bool Fleet::write(int fd, const Picture& picture) const {
  std::size_t sent = 0;
  for (std::size_t i = 0; i < (packetwise_ ? picture.packets.size() : 1); ++i) {
    const bool last = !packetwise_ || i + 1 == picture.packets.size();
    const std::size_t end = last ? picture.bytes.size() : picture.packets[i + 1];
    const ssize_t got =
        ::send(fd, picture.bytes.data() + sent, end - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (got != static_cast<ssize_t>(end - sent)) return false;
    sent = end;
  }
  return true;
}

void Fleet::send(std::size_t turn, const Picture& picture) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto client = playing_.begin(); client != playing_.end();) {
    const auto [fd, its] = *client;
    ++client;
    if (its != turn || write(fd, picture)) continue;
    // Too slow by megabytes, or gone.
    playing_.erase(fd);
    shutdown(fd, SHUT_RDWR);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string writes = argc == 5 ? argv[1] : "";
  if (writes != "picture" && writes != "packet") {
    fprintf(stderr, "usage: camera_fleet picture|packet PORT PATH PICTURES\n");
    return 2;
  }
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  const bench::RtspStream camera = bench::playRtsp(atoi(argv[2]), argv[3]);
  Fleet fleet(camera.description, record(camera.fd, static_cast<std::size_t>(atoi(argv[4]))),
              writes == "packet");
  close(camera.fd);
  std::thread sender([&] { fleet.play(); });
  fleet.serve();
  sender.join();
  return 0;
}
