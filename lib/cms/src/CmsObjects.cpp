// Connection, session, producer and consumer: thin faces of ConnectionCore.
#include <sys/time.h>

#include "ConnectionCore.h"
#include "cms/ConnectionFactory.h"

namespace cms {
namespace {

using openwire::Clock;
using openwire::ConnectionCore;

// Shared by a session and all that it made, which may outlive it.
struct SessionState {
  SessionState(std::shared_ptr<ConnectionCore> connection, std::uint64_t sessionNumber)
      : core(std::move(connection)), number(sessionNumber) {}
  const std::shared_ptr<ConnectionCore> core;
  const std::uint64_t number;
  std::atomic<bool> closed{false};

  void check() const {
    if (closed) throw CMSException("the session is closed");
  }
};

long long nowMs() {
  timeval now{};
  ::gettimeofday(&now, nullptr);
  return now.tv_sec * 1000LL + now.tv_usec / 1000;
}

class ConsumerImpl : public MessageConsumer {
 public:
  ConsumerImpl(std::shared_ptr<SessionState> session, const Destination& destination,
               const std::string& selector)
      : session_(std::move(session)),
        id_(openwire::consumerId(core().name(), session_->number, core().nextNumber())),
        inbox_(core().openInbox(id_)) {
    try {
      core().announce(id_, session_->number, openwire::consumerInfo(id_, destination, selector));
    } catch (...) {
      core().closeInbox(id_, inbox_);
      throw;
    }
  }
  ~ConsumerImpl() override { ConsumerImpl::close(); }

  void close() override {
    if (closed_.exchange(true)) return;
    core().closeInbox(id_, inbox_);
    if (!session_->closed) core().withdraw(id_);
  }
  Message* receive() override { return core().receive(*inbox_, nullptr).release(); }
  Message* receive(int millisecs) override {
    const auto deadline = Clock::now() + std::chrono::milliseconds(millisecs);
    return core().receive(*inbox_, &deadline).release();
  }
  Message* receiveNoWait() override { return receive(0); }

 private:
  ConnectionCore& core() const { return *session_->core; }
  const std::shared_ptr<SessionState> session_;
  const std::string id_;
  const std::shared_ptr<openwire::Inbox> inbox_;
  std::atomic<bool> closed_{false};
};

class ProducerImpl : public MessageProducer {
 public:
  ProducerImpl(std::shared_ptr<SessionState> session, const Destination* destination)
      : session_(std::move(session)),
        id_(openwire::producerId(core().name(), session_->number, core().nextNumber())),
        destination_(destination != nullptr ? destination->clone() : nullptr) {
    core().announce(id_, session_->number, openwire::producerInfo(id_, destination));
  }
  ~ProducerImpl() override { ProducerImpl::close(); }

  void close() override {
    if (closed_.exchange(true)) return;
    if (!session_->closed) core().withdraw(id_);
  }

  void send(Message* message) override { send(destination_.get(), message); }
  void send(Message* message, int mode, int priority, long long timeToLive) override {
    send(destination_.get(), message, mode, priority, timeToLive);
  }
  void send(const Destination* destination, Message* message) override {
    send(destination, message, deliveryMode_, priority_, timeToLive_);
  }
  void send(const Destination* destination, Message* message, int mode, int priority,
            long long timeToLive) override {
    session_->check();
    if (closed_) throw CMSException("the producer is closed");
    if (destination == nullptr) throw CMSException("a message is sent without a destination");
    auto* content = dynamic_cast<openwire::MessageContent*>(message);
    if (content == nullptr) throw CMSException("a message that no session made");
    openwire::MessageData& data = content->data;
    data.destination.reset(destination->clone());
    data.deliveryMode = mode;
    data.priority = priority;
    data.timestamp = nowMs();
    data.expiration = timeToLive > 0 ? data.timestamp + timeToLive : 0;
    const openwire::OutCommand command = openwire::sendMessage(id_, ++sequence_, *content);
    if (mode == DeliveryMode::PERSISTENT) {
      core().request(command, core().sendLimitMs());
    } else {
      core().send(command);
    }
  }

  void setDeliveryMode(int mode) override { deliveryMode_ = mode; }
  int getDeliveryMode() const override { return deliveryMode_; }
  void setPriority(int priority) override { priority_ = priority; }
  int getPriority() const override { return priority_; }
  void setTimeToLive(long long milliseconds) override { timeToLive_ = milliseconds; }
  long long getTimeToLive() const override { return timeToLive_; }

 private:
  ConnectionCore& core() const { return *session_->core; }
  const std::shared_ptr<SessionState> session_;
  const std::string id_;
  const std::unique_ptr<Destination> destination_;
  std::atomic<std::uint64_t> sequence_{0};
  std::atomic<bool> closed_{false};
  int deliveryMode_ = DeliveryMode::PERSISTENT;
  int priority_ = 4;
  long long timeToLive_ = 0;
};

class SessionImpl : public Session {
 public:
  explicit SessionImpl(const std::shared_ptr<ConnectionCore>& core)
      : state_(std::make_shared<SessionState>(core, core->nextNumber())),
        id_(openwire::sessionId(core->name(), state_->number)) {
    core->announce(id_, state_->number, openwire::sessionInfo(id_));
  }
  ~SessionImpl() override { SessionImpl::close(); }

  void close() override {
    if (!state_->closed.exchange(true)) state_->core->withdrawSession(state_->number, id_);
  }

  MessageConsumer* createConsumer(const Destination* destination) override {
    return createConsumer(destination, "");
  }
  MessageConsumer* createConsumer(const Destination* destination,
                                  const std::string& selector) override {
    state_->check();
    if (destination == nullptr) throw CMSException("a consumer needs a destination");
    return new ConsumerImpl(state_, *destination, selector);
  }
  MessageProducer* createProducer(const Destination* destination) override {
    state_->check();
    return new ProducerImpl(state_, destination);
  }
  Queue* createQueue(const std::string& name) override {
    return make<Queue>(openwire::makeDestination(openwire::kQueue, name));
  }
  Topic* createTopic(const std::string& name) override {
    return make<Topic>(openwire::makeDestination(openwire::kTopic, name));
  }
  Message* createMessage() override { return make<Message>(message(openwire::kPlainMessage)); }
  BytesMessage* createBytesMessage() override {
    return make<BytesMessage>(message(openwire::kBytesMessage));
  }
  BytesMessage* createBytesMessage(const unsigned char* bytes, int bytesSize) override {
    std::unique_ptr<BytesMessage> made(createBytesMessage());
    made->setBodyBytes(bytes, bytesSize);
    return made.release();
  }
  TextMessage* createTextMessage() override {
    return make<TextMessage>(message(openwire::kTextMessage));
  }
  TextMessage* createTextMessage(const std::string& text) override {
    TextMessage* made = createTextMessage();
    made->setText(text);
    return made;
  }
  AcknowledgeMode getAcknowledgeMode() const override { return AUTO_ACKNOWLEDGE; }

 private:
  // The kind was asked for just now, so that the cast cannot fail.
  template <class Kind, class Base>
  static Kind* make(std::unique_ptr<Base> made) {
    return dynamic_cast<Kind*>(made.release());
  }
  std::unique_ptr<Message> message(std::uint8_t type) const {
    state_->check();
    return openwire::makeMessage(type, {});
  }

  const std::shared_ptr<SessionState> state_;
  const std::string id_;
};

class ConnectionImpl : public Connection {
 public:
  ConnectionImpl(const openwire::BrokerUri& uri, const std::string& user,
                 const std::string& password)
      : core_(std::make_shared<ConnectionCore>(uri, user, password)) {
    core_->open();
  }
  ~ConnectionImpl() override { ConnectionImpl::close(); }

  void close() override { core_->close(); }
  void start() override { core_->setDelivering(true); }
  void stop() override { core_->setDelivering(false); }
  Session* createSession() override { return new SessionImpl(core_); }
  Session* createSession(Session::AcknowledgeMode) override { return createSession(); }
  std::string getClientID() const override { return core_->name(); }
  ExceptionListener* getExceptionListener() const override { return core_->listener(); }
  void setExceptionListener(ExceptionListener* listener) override { core_->setListener(listener); }

 private:
  const std::shared_ptr<ConnectionCore> core_;
};

class FactoryImpl : public ConnectionFactory {
 public:
  explicit FactoryImpl(const std::string& uri) : uri_(openwire::parseBrokerUri(uri)) {}
  Connection* createConnection() override { return createConnection(uri_.user, uri_.password); }
  Connection* createConnection(const std::string& user, const std::string& password) override {
    return new ConnectionImpl(uri_, user, password);
  }

 private:
  const openwire::BrokerUri uri_;
};

}  // namespace

ConnectionFactory* ConnectionFactory::createCMSConnectionFactory(const std::string& brokerURI) {
  return new FactoryImpl(brokerURI);
}

}  // namespace cms
