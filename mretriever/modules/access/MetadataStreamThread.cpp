#include "MetadataStreamThread.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>

#include "FailureReport.h"

namespace Kelvane {

namespace {

constexpr int kTimeoutMs = 30;
constexpr std::size_t kLargestDatagram = 4096;

}  // namespace

MetadataStreamThread::MetadataStreamThread(int localPort, UsageEnvironment& env)
    : port(localPort), dSink_(new MetadataSink(env)) {
  if (!ts_.opened()) FATAL_EXIT("iformat == NULL");
  dSink_->init("", static_cast<const unsigned char*>(nullptr), 0U);
}

MetadataStreamThread::~MetadataStreamThread() {
  runnable_ = false;
  join();
  Medium::close(dSink_);
}

void MetadataStreamThread::execute() {
  const int socket = bindSocket();
  while (runnable_) {
    pollfd entry{socket, POLLIN, 0};
    const int ready = poll(&entry, 1, kTimeoutMs);
    if (ready < 0) FATAL_EXIT("select() fails");
    if (ready > 0) receive(socket);
  }
}

int MetadataStreamThread::bindSocket() const {
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = INADDR_ANY;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  if (bind(socket, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0) {
    FATAL_EXIT("Can't bind port %d for metadata", port);
  }
  return socket;
}

void MetadataStreamThread::receive(int socket) {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  std::array<unsigned char, kLargestDatagram> datagram;
  const ssize_t size = recvfrom(socket, datagram.data(), datagram.size(), 0, nullptr, nullptr);
  if (size <= 0) return;
  ts_.feed(datagram.data(), static_cast<std::size_t>(size), [&](AVPacket& pes, AVStream&) {
    LOG_DEBUG("Got external metadata (size=%d)", pes.size);
    dSink_->addData(pes.data, static_cast<unsigned>(pes.size), tv);
  });
}

}  // namespace Kelvane

// What the base looks up in this library.
extern "C" Kelvane::Thread* mretriever_createMetadataStreamThread(int port, UsageEnvironment& env) {
  return new Kelvane::MetadataStreamThread(port, env);
}
