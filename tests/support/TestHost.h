#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AbstractSink.h"
#include "Cfg.h"
#include "Deadline.h"
#include "HostObserver.h"
#include "NETMediaProducerImpl.h"
#include "Retriever.h"

namespace testsupport {

// Of what another thread adds to.
template <class Member>
Member copied(std::mutex& mutex, const Member& member) {
  std::lock_guard<std::mutex> held(mutex);
  return member;
}

struct SinkFrame {
  std::string data;
  timeval tv;
};

// A sink that keeps what it is given. Safe to look at from the test's thread.
class CapturingSink : public Kelvane::AbstractSink {
 public:
  // `readsConfig`: init() carries configuration bytes and their number.
  CapturingSink(UsageEnvironment& env, bool readsConfig)
      : AbstractSink(env), readsConfig_(readsConfig) {}
  // A producer deletes its sinks on its own thread: behind the last look at them.
  ~CapturingSink() override { std::lock_guard<std::mutex> held(mutex_); }

  void init(const char* codec, ...) override;
  void addData(unsigned char* data, unsigned int size, const timeval& tv) override;
  void setTrigger(char* text) override;

  // False when fewer frames came within the deadline.
  bool awaitFrames(std::size_t count);
  std::vector<SinkFrame> frames() { return copied(mutex_, frames_); }
  std::vector<std::string> data();  // of the frames
  std::size_t count() { return frames().size(); }
  std::vector<std::string> codecs() {
    return copied(mutex_, codecs_);
  }  // one entry a call of init()
  std::vector<std::string> configs() { return copied(mutex_, configs_); }  // likewise
  // One entry a call of setTrigger().
  std::vector<std::string> triggers() { return copied(mutex_, triggers_); }
  // Called on the delivering thread, behind each frame.
  void onFrame(std::function<void(const SinkFrame&)> call) { onFrame_ = std::move(call); }

  using AbstractSink::fCodec;

 private:
  const bool readsConfig_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<SinkFrame> frames_;
  std::vector<std::string> codecs_;
  std::vector<std::string> configs_;
  std::vector<std::string> triggers_;
  std::function<void(const SinkFrame&)> onFrame_;
};

// The host around a producer under test: configuration, event loop, three
// capturing sinks, the observer. One for each test process. Stream states are
// printed to standard error as "state STREAM_LOST NET_FAILURE", so that death
// tests see them beside the log lines.
class TestHost : public Kelvane::HostObserver {
 public:
  using Keys = std::map<std::string, std::string>;

  // CAMERAMODEL, PROTO, DEVID (unique to the process), OBJID, MODELID and
  // MEDIA_FORMAT have defaults that `keys` overrides.
  // `scheduler` becomes the host's; null for one like the program's.
  explicit TestHost(const Keys& keys = {}, TaskScheduler* scheduler = nullptr);
  TestHost(std::initializer_list<Keys::value_type> keys) : TestHost(Keys(keys)) {}
  ~TestHost() override;

  UsageEnvironment& env() { return *env_; }
  // The sinks, until the destructor or a producer that closes them.
  CapturingSink* audio() { return audio_; }
  CapturingSink* video() { return video_; }
  CapturingSink* metadata() { return metadata_; }

  // Runs producer.init() and start() on a thread of its own.
  void run(Kelvane::NETMediaProducerImpl& producer);
  // Sets the stop flag; false when start() does not return in time. A reader
  // that is blocked needs one last packet from the device behind stop().
  void stop();
  bool awaitEnd();
  bool result() const { return result_; }  // of start()

  struct Initialised {
    Kelvane::MEDIA_TYPE media;
    std::string codec;
    std::string config;
  };
  struct IntakeFrame {
    Kelvane::MEDIA_TYPE media;
    std::string data;
    timeval tv;
    std::string objects;
  };
  std::vector<Initialised> initialised() { return copied(mutex_, initialised_); }
  // Frames that reached the frame intake.
  std::vector<IntakeFrame> intake() { return copied(mutex_, intake_); }
  // "STREAM_LOST NET_FAILURE"
  std::vector<std::string> states() { return copied(mutex_, states_); }
  int pidUpdates() { return copied(mutex_, pidUpdates_); }
  // "name seconds.microseconds record"
  std::vector<std::string> extraData() { return copied(mutex_, extraData_); }

  void onInit(Kelvane::MEDIA_TYPE media, const std::string& codec,
              const std::string& config) override;
  void onFrame(const Kelvane::MediaFrame& frame) override;
  void onTrigger(const std::string&) override {}
  void onState(Kelvane::StreamState::STATE state, Kelvane::StreamState::ERRNO error) override;
  void onPid(bool, bool) override;
  void onExtraData(const std::string& name, const timeval& tv, const std::string& record) override;

 private:
  Kelvane::Retriever retriever_;
  TaskScheduler* scheduler_;
  UsageEnvironment* env_;
  Medium* lastMedium_;
  CapturingSink* audio_;
  CapturingSink* video_;
  CapturingSink* metadata_;
  std::vector<std::string> sinkNames_;
  std::thread thread_;
  std::mutex mutex_;
  bool ended_ = false;
  bool result_ = false;
  std::vector<Initialised> initialised_;
  std::vector<IntakeFrame> intake_;
  std::vector<std::string> states_;
  std::vector<std::string> extraData_;
  int pidUpdates_ = 0;
};

// A frame with its own copy of `data`, as the host's observers get it.
std::unique_ptr<Kelvane::MediaFrame> mediaFrame(const std::string& data, Kelvane::MEDIA_TYPE media,
                                                const timeval& tv = {});

// An address of 127.0.0.0/8 that only this process uses: for devices with fixed ports.
std::string ownLoopbackAddress(int index = 0);

// True once the calling thread is the only one: what another thread holds at a
// fork, the sanitizer's allocator say, stays locked in the child.
bool onlyThread();

// Expects that `statement` leaves the process with `status` and that what it
// printed to standard error matches. Devices with threads belong into `statement`.
#define EXPECT_LEAVES(statement, status, matcher)                       \
  do {                                                                  \
    EXPECT_TRUE(testsupport::onlyThread());                             \
    EXPECT_EXIT(statement, ::testing::ExitedWithCode(status), matcher); \
  } while (false)
// A fatal report: status 1, log text, state.
#define EXPECT_FATAL_REPORT(statement, text, state)          \
  EXPECT_LEAVES(statement, 1,                                \
                ::testing::AllOf(::testing::HasSubstr(text), \
                                 ::testing::HasSubstr(std::string("state ") + (state))))
// A plain fatal exit: status 1, log text, no state.
#define EXPECT_FATAL_EXIT(statement, text)                   \
  EXPECT_LEAVES(statement, 1,                                \
                ::testing::AllOf(::testing::HasSubstr(text), \
                                 ::testing::Not(::testing::HasSubstr("state "))))

}  // namespace testsupport
