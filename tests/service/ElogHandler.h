#pragma once

#include <gtest/gtest.h>
#include <thrift/TApplicationException.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "ElogServices.h"
#include "TDX_Service.h"
#include "support/Deadline.h"

namespace testsupport {

inline NV_TDX::Action action(const std::string& message) {
  NV_TDX::Action made;
  made.name = "create";
  made.parameters["msg"] = message;
  return made;
}

// An event log that remembers. The message steers it: "refuse" is answered
// with FwException, "break" with another exception, "wait" when released,
// "who" with the user id of the request. An action without one is refused.
class ElogHandler : public NV_TDX::ELogIf {
 public:
  void submitAction(NV_TDX::ActionResponse& result, const NV_TDX::Action& action) override {
    note(action);
    const std::string& message = action.parameters.at("msg");
    if (message == "refuse") {
      NV_TDX::FwException refusal;
      refusal.what_ = "no room";
      refusal.errorId = "E7";
      throw refusal;
    }
    if (message == "break") throw std::runtime_error("disk on fire");
    std::unique_lock<std::mutex> lock(mutex_);
    if (message == "wait") changed_.wait_for(lock, kPatience, [this] { return released_; });
    result.parameters["echo"] =
        message == "who" ? "user " + std::to_string(service->getUserId()) : message;
    result.parameters["action"] = action.name;
  }
  void submitActionA(const NV_TDX::Action& action) override { note(action); }

  std::vector<NV_TDX::Action> actions() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return actions_;
  }
  bool heard(const std::string& message) {
    const auto all = actions();
    return std::any_of(all.begin(), all.end(),
                       [&](const auto& each) { return each.parameters.at("msg") == message; });
  }
  void release() {
    const std::lock_guard<std::mutex> lock(mutex_);
    released_ = true;
    changed_.notify_all();
  }
  TDX_Service* service = nullptr;  // that runs it
  std::size_t threads() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return threads_.size();
  }

 private:
  void note(const NV_TDX::Action& action) {
    if (action.parameters.count("msg") == 0) throw std::invalid_argument("no message");
    const std::lock_guard<std::mutex> lock(mutex_);
    actions_.push_back(action);
    threads_.insert(std::this_thread::get_id());
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<NV_TDX::Action> actions_;
  std::set<std::thread::id> threads_;
  bool released_ = false;
};

// A service named `kName` that runs on a thread of its own until the end.
class RunningElog {
 public:
  static constexpr char kName[] = "tdx.test.elog";

  explicit RunningElog(TDX_Service& service, int workers = 4)
      : handler(std::make_shared<ElogHandler>()), service_(service) {
    handler->service = &service_;
    service_.add_processor(kName, std::make_shared<NV_TDX::ELogProcessor>(handler));
    thread_ = std::thread([this, workers] { service_.serve(workers, nullptr); });
  }
  ~RunningElog() {
    handler->release();
    service_.shutdown();
    thread_.join();
  }
  // A client of the service, which listens from then on.
  std::unique_ptr<NV_TDX::ELogClient> client() {
    auto made = std::make_unique<NV_TDX::ELogClient>(service_.proto_(kName));
    EXPECT_TRUE(reached(*made, "hello"));
    return made;
  }
  // Sends one-way until a message of that text came: what is sent before the
  // service listens is lost on the bus.
  bool reached(NV_TDX::ELogClient& sender, const std::string& message) {
    return eventually([&] {
      try {
        sender.submitActionA(action(message));
      } catch (const std::runtime_error&) {  // no way to send yet
      }
      return handler->heard(message);
    });
  }

  const std::shared_ptr<ElogHandler> handler;

 private:
  TDX_Service& service_;
  std::thread thread_;
};

inline std::string submit(NV_TDX::ELogClient& client, const std::string& message) {
  NV_TDX::ActionResponse response;
  client.submitAction(response, action(message));
  return response.parameters["echo"];
}

// Every kind of call and answer, then from some threads at a time, each over a
// channel of its own, which outlives the service that made it.
template <class MakeService>
void expectCalls(RunningElog& elog, MakeService makeService, int callers, int callsEach) {
  const auto client = elog.client();
  EXPECT_EQ("yes", submit(*client, "yes"));
  EXPECT_THROW(submit(*client, "refuse"), NV_TDX::FwException);
  EXPECT_THROW(submit(*client, "break"), apache::thrift::TApplicationException);
  client->submitActionA(action("one way"));
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (int caller = 0; caller < callers; ++caller)
    threads.emplace_back([&, caller] {
      NV_TDX::ELogClient own(makeService().proto_(RunningElog::kName));
      for (int i = 0; i < callsEach; ++i) {
        const std::string message = std::to_string(caller) + "/" + std::to_string(i);
        if (submit(own, message) == message) ++right;
      }
    });
  for (std::thread& each : threads) each.join();
  EXPECT_EQ(callers * callsEach, right);
  EXPECT_TRUE(elog.handler->heard("one way"));
  EXPECT_GT(elog.handler->threads(), 1U);
}

template <class Call>
std::string failureOf(Call call) {
  try {
    call();
  } catch (const std::exception& failure) {
    return failure.what();
  }
  return "no failure";
}

}  // namespace testsupport
