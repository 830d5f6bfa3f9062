#include "Messenger.h"

#include <ace/OS_NS_sys_time.h>
#include <nats/nats.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "Exceptions.h"
#include "HostLog.h"
#include "MessageCodec.h"

namespace Kelvane {
namespace {

constexpr int kConnectTimeoutMs = 4000;
constexpr int kReconnectWaitMs = 200;
constexpr int kPingIntervalMs = 10000;  // a dead server is noticed after three
// Received and not asked for yet. Beyond it the bus library holds messages
// back, and drops them with a report when its own limit is reached too.
constexpr std::size_t kMaxWaitingBytes = 64 * 1024 * 1024;

void check(natsStatus status, const std::string& what) {
  if (status == NATS_OK) return;
  natsStatus last = NATS_OK;
  const char* detail = nats_GetLastError(&last);
  std::string text = what + ": " + natsStatus_GetText(status);
  if (last == status && detail != nullptr && *detail != '\0')
    text += std::string(" (") + detail + ")";
  throw NetworkException(text);
}

void reportAsyncError(natsConnection*, natsSubscription*, natsStatus status, void*) {
  if (status == NATS_SLOW_CONSUMER)
    hostError("Message bus: messages were dropped, the receiver is too slow");
}

struct OptionsDeleter {
  void operator()(natsOptions* options) const { natsOptions_Destroy(options); }
};

std::unique_ptr<natsOptions, OptionsDeleter> makeOptions(const std::string& url) {
  natsOptions* made = nullptr;
  check(natsOptions_Create(&made), "message bus options");
  std::unique_ptr<natsOptions, OptionsDeleter> options(made);
  check(natsOptions_SetURL(made, url.c_str()), "message bus address " + url);
  natsOptions_SetTimeout(made, kConnectTimeoutMs);
  natsOptions_SetMaxReconnect(made, -1);
  natsOptions_SetReconnectWait(made, kReconnectWaitMs);
  natsOptions_SetPingInterval(made, kPingIntervalMs);
  natsOptions_IPResolutionOrder(made, 46);
  natsOptions_SetErrorHandler(made, reportAsyncError, nullptr);
  // Without it a message that is sent right before the process ends is lost.
  natsOptions_SetSendAsap(made, true);
  return options;
}

}  // namespace

// The connection and the queue that its threads fill.
class Messenger::Connection {
 public:
  explicit Connection(const std::string& rendezvous) {
    const auto options = makeOptions("nats://" + rendezvous);
    check(natsConnection_Connect(&connection_, options.get()),
          "cannot connect to the message bus at " + rendezvous);
  }

  ~Connection() {
    stop();
    natsConnection_Close(connection_);
    {
      // A callback may still be at work on this object.
      std::unique_lock<std::mutex> lock(mutex_);
      arrived_.wait(lock, [this] { return running_ == 0; });
    }
    for (natsSubscription* subscription : subscriptions_) natsSubscription_Destroy(subscription);
    natsConnection_Destroy(connection_);
  }

  bool subscribe(const std::string& subject, std::int64_t timeoutMs) {
    natsSubscription* subscription = nullptr;
    check(natsConnection_Subscribe(&subscription, connection_, subject.c_str(), onMessage, this),
          "cannot subscribe to " + subject);
    subscriptions_.push_back(subscription);
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ++running_;
    }
    const natsStatus watched = natsSubscription_SetOnCompleteCB(subscription, onComplete, this);
    if (watched != NATS_OK) onComplete(this);
    check(watched, "cannot subscribe to " + subject);
    // The server answers a refused subscription before it answers the flush.
    check(natsConnection_FlushTimeout(connection_, timeoutMs), "cannot subscribe to " + subject);
    const char* error = nullptr;
    natsConnection_GetLastError(connection_, &error);
    return error == nullptr || std::string(error).find(subject) == std::string::npos;
  }

  void send(const Message& message) {
    const std::string subject = subjectOf(message.header_);
    const std::string bytes = encode(message);
    check(natsConnection_Publish(connection_, subject.c_str(), bytes.data(),
                                 static_cast<int>(bytes.size())),
          "cannot send " + std::to_string(bytes.size()) + " bytes to " + subject);
  }

  // Nothing when the time is up or receiving was stopped.
  bool receive(std::string& bytes, const ACE_Time_Value* deadline) {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto ready = [this] { return stopped_ || !waiting_.empty(); };
    if (deadline == nullptr) {
      arrived_.wait(lock, ready);
    } else {
      ACE_Time_Value left = *deadline - ACE_OS::gettimeofday();
      if (left < ACE_Time_Value::zero) left = ACE_Time_Value::zero;
      arrived_.wait_for(
          lock, std::chrono::seconds(left.sec()) + std::chrono::microseconds(left.usec()), ready);
    }
    if (stopped_ || waiting_.empty()) return false;
    bytes = std::move(waiting_.front());
    waiting_.pop_front();
    waitingBytes_ -= bytes.size();
    taken_.notify_one();
    return true;
  }

  void stop() {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    arrived_.notify_all();
    taken_.notify_all();
  }

 private:
  static void onMessage(natsConnection*, natsSubscription*, natsMsg* message, void* self) {
    std::string bytes(natsMsg_GetData(message),
                      static_cast<std::size_t>(natsMsg_GetDataLength(message)));
    natsMsg_Destroy(message);
    static_cast<Connection*>(self)->push(std::move(bytes));
  }

  static void onComplete(void* self) {
    auto* connection = static_cast<Connection*>(self);
    const std::lock_guard<std::mutex> lock(connection->mutex_);
    --connection->running_;
    connection->arrived_.notify_all();
  }

  void push(std::string bytes) {
    std::unique_lock<std::mutex> lock(mutex_);
    taken_.wait(lock, [this] { return stopped_ || waitingBytes_ < kMaxWaitingBytes; });
    waitingBytes_ += bytes.size();
    waiting_.push_back(std::move(bytes));
    arrived_.notify_one();
  }

  natsConnection* connection_ = nullptr;
  std::vector<natsSubscription*> subscriptions_;
  std::mutex mutex_;
  std::condition_variable arrived_, taken_;
  std::deque<std::string> waiting_;
  std::size_t waitingBytes_ = 0;
  int running_ = 0;  // subscriptions whose thread has not ended
  bool stopped_ = false;
};

Messenger::Messenger(const std::string& rendezvous) : rendezvous_(rendezvous) {}

Messenger::~Messenger() = default;

void Messenger::start() {
  connection_ = std::make_unique<Connection>(rendezvous_);
}

bool Messenger::subscribe(const Message::Header& header, ACE_Time_Value* timeout, bool) {
  if (!connection_) throw NetworkException("the messenger was not started");
  return connection_->subscribe(
      subjectPattern(header.devID),
      timeout != nullptr ? static_cast<std::int64_t>(timeout->msec()) : kConnectTimeoutMs);
}

bool Messenger::send(const Message& message, ACE_Time_Value*) {
  if (!connection_) throw NetworkException("the messenger was not started");
  connection_->send(message);
  return true;
}

bool Messenger::recv(Message* message, ACE_Time_Value* deadline) {
  if (!connection_) throw NetworkException("the messenger was not started");
  std::string bytes;
  if (!connection_->receive(bytes, deadline)) return false;
  *message = decode(bytes);
  return true;
}

void Messenger::stop() {
  if (connection_) connection_->stop();
}

}  // namespace Kelvane
