#include "ReadAheadScheduler.h"

#include <dlfcn.h>
#include <sys/socket.h>

#include <GroupsockHelper.hh>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <typeinfo>

namespace Kelvane {

namespace {
// Calls of the handler (two a packet) before timers, the stop flag and other
// sockets have their turn.
constexpr int kCallsInARow = 128;
constexpr unsigned kNoDelay = 1;  // microseconds; 0 would mean no limit
constexpr timespec kGather{0, 1000000};
}  // namespace

ReadAheadScheduler* ReadAheadScheduler::createNew(unsigned tickMicros) {
  return new ReadAheadScheduler(tickMicros);
}

void ReadAheadScheduler::readAhead(int socket) {
  if (readsAhead(socket)) return;
  forget();
  socket_ = socket;
}

void ReadAheadScheduler::forget() {
  socket_ = -1;
  begin_ = end_ = 0;
  unsettled_ = gathers_ = false;
  framing_ = {};
}

int ReadAheadScheduler::read(unsigned char* to, unsigned size) {
  if (!pending()) {
    if (settling_) return 0;
    const ssize_t got = recv(socket_, block_.data(), block_.size(), MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return 0;
    if (got <= 0) return -1;
    ++blocks_;
    unsettled_ = true;
    gathers_ = static_cast<std::size_t>(got) < block_.size();
    begin_ = 0;
    end_ = static_cast<std::size_t>(got);
    framing_.follow(block_.data(), end_);
  }
  const std::size_t count = std::min<std::size_t>(size, end_ - begin_);
  memcpy(to, block_.data() + begin_, count);
  begin_ += count;
  return static_cast<int>(count);
}

void ReadAheadScheduler::doEventLoop(EventLoopWatchVariable* watchVariable) {
  while (watchVariable == nullptr || *watchVariable == 0) SingleStep(0);
}

void ReadAheadScheduler::readDatagramsAhead(int socket, unsigned char payloadType) {
  // Not make_unique(), which would write to all of its memory.
  if (socket >= 0) batches_[socket].reset(new DatagramBatch(socket, payloadType));
}

void readDatagramsAhead(const RTPSource& source) {
  auto* scheduler = dynamic_cast<ReadAheadScheduler*>(&source.envir().taskScheduler());
  if (scheduler == nullptr) return;
  scheduler->readDatagramsAhead(source.RTPgs()->socketNum(), source.rtpPayloadFormat());
}

DatagramBatch* ReadAheadScheduler::datagrams(int socket) {
  const auto batch = batches_.find(socket);
  return batch == batches_.end() ? nullptr : batch->second.get();
}

int ReadAheadScheduler::waiting() const {
  if (pending() && readers_.count(socket_) != 0) return socket_;
  for (const auto& [socket, batch] : batches_) {
    if (batch->pending() && readers_.count(socket) != 0) return socket;
  }
  return -1;
}

// Behind each packet the library wants a call of the handler in which it reads
// nothing. Behind the last of a block it would come from a select() of its own.
void ReadAheadScheduler::settle() {
  if (!unsettled_ || pending()) return;
  unsettled_ = false;
  const auto reader = readers_.find(socket_);
  if (reader == readers_.end()) return;
  const Handler handler = reader->second;
  settling_ = true;
  handler.call(handler.clientData, SOCKET_READABLE);
  settling_ = false;
}

// Once a block: a camera that pauses within a picture is waited for as usual.
void ReadAheadScheduler::gather() {
  if (!gathers_ || pending()) return;
  gathers_ = false;
  if (framing_.underWay()) clock_nanosleep(CLOCK_MONOTONIC, 0, &kGather, nullptr);
}

void ReadAheadScheduler::SingleStep(unsigned maxDelayTime) {
  settling_ = false;  // a handler may run the loop within itself
  // Looked up each time: the call may change or remove the handler.
  int socket = waiting();
  for (int calls = 0; socket >= 0 && calls < kCallsInARow; ++calls) {
    const Handler reader = readers_[socket];
    reader.call(reader.clientData, SOCKET_READABLE);
    socket = waiting();
  }
  settle();
  gather();
  if (tickMicros_ > 0 && (maxDelayTime == 0 || maxDelayTime > tickMicros_)) {
    maxDelayTime = tickMicros_;
  }
  BasicTaskScheduler::SingleStep(socket >= 0 ? kNoDelay : maxDelayTime);
}

void ReadAheadScheduler::setBackgroundHandling(int socket, int conditions,
                                               BackgroundHandlerProc* handler, void* clientData) {
  BasicTaskScheduler::setBackgroundHandling(socket, conditions, handler, clientData);
  if ((conditions & SOCKET_READABLE) != 0 && handler != nullptr) {
    readers_[socket] = {handler, clientData};
  } else {
    readers_.erase(socket);
  }
  if (conditions != 0) return;
  if (readsAhead(socket)) forget();
  batches_.erase(socket);
}

void ReadAheadScheduler::moveSocketHandling(int from, int to) {
  BasicTaskScheduler::moveSocketHandling(from, to);
  if (readsAhead(from)) forget();
  batches_.erase(from);
  const auto reader = readers_.find(from);
  if (reader == readers_.end()) return;
  readers_[to] = reader->second;
  readers_.erase(reader);
}

}  // namespace Kelvane

// Stands ahead of the library's function of the same name, which does the rest.
int readSocket(UsageEnvironment& env, int socket, unsigned char* buffer, unsigned bufferSize,
               sockaddr_storage& fromAddress) {
  // Called for single bytes: cheaper than a dynamic_cast, and the class is final.
  if (typeid(env.taskScheduler()) == typeid(Kelvane::ReadAheadScheduler)) {
    auto& scheduler = static_cast<Kelvane::ReadAheadScheduler&>(env.taskScheduler());
    if (scheduler.readsAhead(socket)) return scheduler.read(buffer, bufferSize);
    if (auto* batch = scheduler.datagrams(socket)) {
      return batch->read(buffer, bufferSize, fromAddress);
    }
  }
  using Function = int(UsageEnvironment&, int, unsigned char*, unsigned, sockaddr_storage&);
  static auto* const library = reinterpret_cast<Function*>(
      dlsym(RTLD_NEXT, "_Z10readSocketR16UsageEnvironmentiPhjR16sockaddr_storage"));
  return library == nullptr ? -1 : library(env, socket, buffer, bufferSize, fromAddress);
}
