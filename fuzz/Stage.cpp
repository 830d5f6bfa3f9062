#include "Stage.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <BasicUsageEnvironment.hh>
#include <csignal>
#include <log4cpp/Category.hh>
#include <stdexcept>

#include "Cfg.h"
#include "DeviceConnection.h"
#include "LeaveByThrow.h"
#include "Log4cppWrapper.h"
#include "MediaSinks.h"
#include "ReadAheadScheduler.h"
#include "Thread.h"

namespace fuzz {

namespace {

constexpr unsigned kTickMicros = 200;
Stage* current = nullptr;

// Every line is formatted, and no appender takes it.
[[maybe_unused]] const bool quiet = [] {
  signal(SIGPIPE, SIG_IGN);
  log4cpp::Category& category = log4cpp::Category::getInstance(Kelvane::Log4cppWrapper::category());
  category.setAdditivity(false);
  category.setPriority(log4cpp::Priority::DEBUG);
  return true;
}();

// One for all inputs: of a description that it cannot read the library leaves a
// name in the environment's table of media, which is then never released.
UsageEnvironment& environment() {
  static UsageEnvironment& made =
      *BasicUsageEnvironment::createNew(*Kelvane::ReadAheadScheduler::createNew(kTickMicros));
  return made;
}

}  // namespace

Stage::Stage(const std::uint8_t* input, std::size_t size, const Keys& keys)
    : rest_(reinterpret_cast<const char*>(input), size) {
  Kelvane::Cfg::clear();
  for (const char* key : {"CAMERAMODEL", "PROTO", "DEVID", "OBJID", "MODELID"}) {
    Kelvane::Cfg::insert(key, "any");
  }
  for (const auto& [key, value] : keys) Kelvane::Cfg::insert(key, value);
  audio_ = new Kelvane::AudioSink(environment());
  video_ = new Kelvane::VideoSink(environment());
  metadata_ = new Kelvane::MetadataSink(environment());
  for (const Medium* sink : {audio_, video_, metadata_}) sinkNames_.emplace_back(sink->name());
  current = this;
}

Stage::~Stage() {
  current = nullptr;
  environment().taskScheduler().unscheduleDelayedTask(turn_);
  // By name: a producer may have closed one, which deleted it.
  for (const std::string& name : sinkNames_) Medium::close(environment(), name.c_str());
}

bool Stage::nextPart(std::string& part) {
  if (ended_) return false;
  const std::size_t end = rest_.find(kPart);
  ended_ = end == std::string_view::npos;
  part = rest_.substr(0, end);
  if (!ended_) rest_.remove_prefix(end + kPart.size());
  return true;
}

Kelvane::UniqueFd Stage::connect() {
  std::string bytes;
  int ends[2];
  if (!nextPart(bytes) || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return {};
  Kelvane::UniqueFd device(ends[0]);
  const int room = 1 << 20;
  setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
  // What does not fit into the socket is an earlier end of the stream.
  while (!bytes.empty()) {
    const ssize_t put = send(ends[0], bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (put <= 0) break;
    bytes.erase(0, static_cast<std::size_t>(put));
  }
  shutdown(ends[0], SHUT_WR);
  deviceSides_.push_back(std::move(device));
  return Kelvane::UniqueFd(ends[1]);
}

void Stage::eachTurn(std::function<bool()> peer) {
  peer_ = std::move(peer);
  turn_ = environment().taskScheduler().scheduleDelayedTask(0, turn, this);
}

void Stage::turn(void* stage) {
  auto* self = static_cast<Stage*>(stage);
  self->turn_ = nullptr;
  if (!self->peer_()) {
    self->retriever_.stop();
  } else {
    self->turn_ = environment().taskScheduler().scheduleDelayedTask(0, turn, stage);
  }
}

void Stage::run(const std::function<void()>& producer) {
  try {
    producer();
  } catch (const Left&) {
  } catch (const std::invalid_argument&) {
    // An absent key; the program ends with a message.
  }
}

}  // namespace fuzz

namespace Kelvane {

DeviceConnection connectToDevice(const std::string&, int) {
  UniqueFd socket = fuzz::current == nullptr ? UniqueFd() : fuzz::current->connect();
  if (!socket) return {UniqueFd(), "CRT-5009 Unable to connect(): no more sections"};
  return {std::move(socket), ""};
}

// In the place of the host library's: the reader is what is looked at.
void Thread::start() {}

}  // namespace Kelvane
