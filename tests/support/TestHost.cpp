#include "TestHost.h"

#include <unistd.h>

#include <BasicUsageEnvironment.hh>
#include <cstdarg>
#include <cstdio>
#include <filesystem>

#include "ReadAheadScheduler.h"

namespace testsupport {

using Kelvane::Cfg;
using Kelvane::StreamState;

void CapturingSink::init(const char* codec, ...) {
  const unsigned char* config = nullptr;
  unsigned size = 0;
  if (readsConfig_) {
    va_list arguments;
    va_start(arguments, codec);
    config = va_arg(arguments, const unsigned char*);
    size = va_arg(arguments, unsigned);
    va_end(arguments);
  }
  AbstractSink::init(codec);
  std::lock_guard<std::mutex> held(mutex_);
  codecs_.emplace_back(codec);
  configs_.push_back(size == 0 ? "" : std::string(reinterpret_cast<const char*>(config), size));
}

void CapturingSink::addData(unsigned char* data, unsigned int size, const timeval& tv) {
  SinkFrame frame{std::string(reinterpret_cast<const char*>(data), size), tv};
  {
    std::lock_guard<std::mutex> held(mutex_);
    frames_.push_back(frame);
  }
  changed_.notify_all();
  if (onFrame_) onFrame_(frame);
}

void CapturingSink::setTrigger(char* text) {
  std::lock_guard<std::mutex> held(mutex_);
  triggers_.emplace_back(text);
}

bool CapturingSink::awaitFrames(std::size_t count) {
  std::unique_lock<std::mutex> held(mutex_);
  return changed_.wait_for(held, kPatience, [&] { return frames_.size() >= count; });
}

std::vector<std::string> CapturingSink::data() {
  std::vector<std::string> all;
  for (const SinkFrame& frame : frames()) all.push_back(frame.data);
  return all;
}

namespace {
constexpr unsigned kTickMicros = 10000;

// Looking a medium up in an environment that has none left makes a table that
// is never released: one medium stays until the end.
class LastMedium : public Medium {
 public:
  explicit LastMedium(UsageEnvironment& env) : Medium(env) {}
};
}  // namespace

TestHost::TestHost(const Keys& keys, TaskScheduler* scheduler) {
  Cfg::clear();
  const std::string pid = std::to_string(getpid());
  Keys all{{"DEVID", "dev" + pid}, {"OBJID", pid},          {"CAMERAMODEL", "any"},
           {"MODELID", "any"},     {"MEDIA_FORMAT", "any"}, {"PROTO", "any"}};
  for (const auto& [key, value] : keys) all[key] = value;
  for (const auto& [key, value] : all) Cfg::insert(key, value);
  Kelvane::setHostObserver(this);
  scheduler_ =
      scheduler != nullptr ? scheduler : Kelvane::ReadAheadScheduler::createNew(kTickMicros);
  env_ = BasicUsageEnvironment::createNew(*scheduler_);
  lastMedium_ = new LastMedium(*env_);
  audio_ = new CapturingSink(*env_, true);
  video_ = new CapturingSink(*env_, false);
  metadata_ = new CapturingSink(*env_, true);
  for (const CapturingSink* sink : {audio_, video_, metadata_}) sinkNames_.push_back(sink->name());
}

TestHost::~TestHost() {
  stop();
  if (thread_.joinable()) {
    if (!awaitEnd()) {
      // Nothing can be torn down under a running producer.
      fprintf(stderr, "TestHost: start() did not return\n");
      _exit(99);
    }
    thread_.join();
  }
  // By name: a producer may have closed one, which deleted it.
  for (const std::string& name : sinkNames_) Medium::close(*env_, name.c_str());
  Medium::close(lastMedium_);
  env_->reclaim();
  delete scheduler_;
  Kelvane::setHostObserver(nullptr);
}

void TestHost::run(Kelvane::NETMediaProducerImpl& producer) {
  thread_ = std::thread([this, &producer] {
    producer.init();
    const bool result = producer.start();
    std::lock_guard<std::mutex> held(mutex_);
    result_ = result;
    ended_ = true;
  });
}

void TestHost::stop() {
  retriever_.stop();
}

bool TestHost::awaitEnd() {
  return eventually([this] { return copied(mutex_, ended_); });
}

void TestHost::onInit(Kelvane::MEDIA_TYPE media, const std::string& codec,
                      const std::string& config) {
  std::lock_guard<std::mutex> held(mutex_);
  initialised_.push_back({media, codec, config});
}

void TestHost::onFrame(const Kelvane::MediaFrame& frame) {
  std::lock_guard<std::mutex> held(mutex_);
  const auto* bytes = reinterpret_cast<const char*>(frame.data);
  intake_.push_back({frame.mediaType,
                     bytes == nullptr ? std::string() : std::string(bytes, frame.size), frame.tv,
                     frame.objectsData});
}

void TestHost::onState(StreamState::STATE state, StreamState::ERRNO error) {
  fprintf(stderr, "state %s %s\n", StreamState::name(state), StreamState::name(error));
  std::lock_guard<std::mutex> held(mutex_);
  states_.push_back(std::string(StreamState::name(state)) + " " + StreamState::name(error));
}

void TestHost::onPid(bool, bool) {
  std::lock_guard<std::mutex> held(mutex_);
  ++pidUpdates_;
}

void TestHost::onExtraData(const std::string& name, const timeval& tv, const std::string& record) {
  std::lock_guard<std::mutex> held(mutex_);
  extraData_.push_back(name + " " + std::to_string(tv.tv_sec) + "." + std::to_string(tv.tv_usec) +
                       " " + record);
}

std::unique_ptr<Kelvane::MediaFrame> mediaFrame(const std::string& data, Kelvane::MEDIA_TYPE media,
                                                const timeval& tv) {
  auto* copy = static_cast<std::uint8_t*>(malloc(data.size() + 1));
  data.copy(reinterpret_cast<char*>(copy), data.size());
  auto frame =
      std::make_unique<Kelvane::MediaFrame>(copy, static_cast<std::uint32_t>(data.size()), media);
  frame->tv = tv;
  return frame;
}

bool onlyThread() {
#ifdef __SANITIZE_THREAD__
  return true;  // has a thread of its own and takes care of forks
#else
  return eventually([] {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::distance(begin(threads), end(threads)) == 1;
  });
#endif
}

std::string ownLoopbackAddress(int index) {
  // Process ids are unique while the test runs; four addresses each.
  const auto id = static_cast<unsigned>(getpid()) * 4U + static_cast<unsigned>(index & 3);
  return "127." + std::to_string(64 + id / 64000 % 64) + "." + std::to_string(id / 250 % 256) +
         "." + std::to_string(1 + id % 250);
}

}  // namespace testsupport
