#include "Messages.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "Wire.h"
#include "cms/CMSException.h"

namespace cms::openwire {
namespace {

bool isTopic(std::uint8_t type) {
  return type == kTopic || type == kTemporaryTopic;
}

std::uint8_t wireTypeOf(const Destination& destination) {
  switch (destination.getDestinationType()) {
    case Destination::TOPIC:
      return kTopic;
    case Destination::TEMPORARY_TOPIC:
      return kTemporaryTopic;
    case Destination::TEMPORARY_QUEUE:
      return kTemporaryQueue;
    default:
      return kQueue;
  }
}

std::string nameOf(const Destination& destination) {
  if (const auto* queue = dynamic_cast<const Queue*>(&destination)) return queue->getQueueName();
  if (const auto* topic = dynamic_cast<const Topic*>(&destination)) return topic->getTopicName();
  throw CMSException("a destination of unknown kind");
}

bool same(const Destination& a, const Destination& b) {
  return a.getDestinationType() == b.getDestinationType() && nameOf(a) == nameOf(b);
}

class QueueImpl : public Queue {
 public:
  QueueImpl(std::uint8_t type, std::string name) : type_(type), name_(std::move(name)) {}
  DestinationType getDestinationType() const override {
    return type_ == kQueue ? QUEUE : TEMPORARY_QUEUE;
  }
  Destination* clone() const override { return new QueueImpl(*this); }
  bool equals(const Destination& other) const override { return same(*this, other); }
  std::string getQueueName() const override { return name_; }

 private:
  std::uint8_t type_;
  std::string name_;
};

class TopicImpl : public Topic {
 public:
  TopicImpl(std::uint8_t type, std::string name) : type_(type), name_(std::move(name)) {}
  DestinationType getDestinationType() const override {
    return type_ == kTopic ? TOPIC : TEMPORARY_TOPIC;
  }
  Destination* clone() const override { return new TopicImpl(*this); }
  bool equals(const Destination& other) const override { return same(*this, other); }
  std::string getTopicName() const override { return name_; }

 private:
  std::uint8_t type_;
  std::string name_;
};

std::shared_ptr<const Destination> copyOf(const Destination* destination) {
  return std::shared_ptr<const Destination>(destination != nullptr ? destination->clone()
                                                                   : nullptr);
}

// The header operations, the same for every kind of message.
template <class Interface, std::uint8_t kType>
class MessageImpl : public Interface, public MessageContent {
 public:
  explicit MessageImpl(const MessageData& content) : MessageContent(content) {}
  std::uint8_t wireType() const override { return kType; }

  std::string getCMSCorrelationID() const override { return data.correlationId.value_or(""); }
  void setCMSCorrelationID(const std::string& id) override { data.correlationId = id; }
  const Destination* getCMSReplyTo() const override { return data.replyTo.get(); }
  void setCMSReplyTo(const Destination* to) override { data.replyTo = copyOf(to); }
  const Destination* getCMSDestination() const override { return data.destination.get(); }
  void setCMSDestination(const Destination* to) override { data.destination = copyOf(to); }
  std::string getCMSMessageID() const override { return data.messageId; }
  std::string getCMSType() const override { return data.type.value_or(""); }
  void setCMSType(const std::string& type) override { data.type = type; }
  int getCMSDeliveryMode() const override { return data.deliveryMode; }
  int getCMSPriority() const override { return data.priority; }
  bool getCMSRedelivered() const override { return data.redelivered; }
  long long getCMSTimestamp() const override { return data.timestamp; }
  long long getCMSExpiration() const override { return data.expiration; }

 protected:
  using MessageContent::data;
};

class PlainImpl : public MessageImpl<Message, kPlainMessage> {
 public:
  using MessageImpl::MessageImpl;
  Message* clone() const override { return new PlainImpl(data); }
};

class TextImpl : public MessageImpl<TextMessage, kTextMessage> {
 public:
  using MessageImpl::MessageImpl;
  Message* clone() const override { return new TextImpl(data); }
  std::string getText() const override { return data.body; }
  void setText(const char* text) override { data.body = text; }
  void setText(const std::string& text) override { data.body = text; }
};

class BytesImpl : public MessageImpl<BytesMessage, kBytesMessage> {
 public:
  using MessageImpl::MessageImpl;
  Message* clone() const override { return new BytesImpl(data); }

  void setBodyBytes(const unsigned char* buffer, int numBytes) override {
    data.body.clear();
    writeBytes(buffer, 0, numBytes);
  }
  unsigned char* getBodyBytes() const override {
    if (data.body.empty()) return nullptr;
    auto* copy = new unsigned char[data.body.size()];
    std::memcpy(copy, data.body.data(), data.body.size());
    return copy;
  }
  int getBodyLength() const override { return static_cast<int>(data.body.size()); }
  void reset() override { read_ = 0; }
  int readBytes(std::vector<unsigned char>& value) const override {
    return readBytes(value.data(), static_cast<int>(std::min<std::size_t>(value.size(), INT_MAX)));
  }
  int readBytes(unsigned char* buffer, int length) const override {
    if (length < 0) throw CMSException("readBytes: a negative length");
    if (read_ == data.body.size()) return length == 0 ? 0 : -1;
    const std::size_t count = std::min(static_cast<std::size_t>(length), data.body.size() - read_);
    if (count > 0) std::memcpy(buffer, data.body.data() + read_, count);
    read_ += count;
    return static_cast<int>(count);
  }
  void writeBytes(const std::vector<unsigned char>& value) override {
    append(value.data(), value.size());
  }
  void writeBytes(const unsigned char* value, int offset, int length) override {
    if (offset < 0 || length < 0) throw CMSException("writeBytes: a negative offset or length");
    if (length > 0) append(value + offset, static_cast<std::size_t>(length));
  }

 private:
  void append(const unsigned char* value, std::size_t count) {
    if (count > INT_MAX - data.body.size()) throw CMSException("writeBytes: the body is too long");
    data.body.append(reinterpret_cast<const char*>(value), count);
  }
  mutable std::size_t read_ = 0;
};

}  // namespace

std::unique_ptr<Destination> makeDestination(std::uint8_t type, const std::string& name) {
  if (isTopic(type)) return std::make_unique<TopicImpl>(type, name);
  return std::make_unique<QueueImpl>(type, name);
}

std::string encodeDestination(const Destination* destination) {
  if (destination == nullptr) return Writer().null().data();
  return Writer().boolean(true).u8(wireTypeOf(*destination)).string(nameOf(*destination)).data();
}

std::unique_ptr<Destination> decodeDestination(std::string_view object) {
  Reader in(object);
  if (!in.boolean()) return nullptr;
  const std::uint8_t type = in.u8();
  if (type < kQueue || type > kTemporaryTopic) return nullptr;
  return makeDestination(type, in.string().value_or(""));
}

std::unique_ptr<Message> makeMessage(std::uint8_t wireType, const MessageData& data) {
  switch (wireType) {
    case kBytesMessage:
      return std::make_unique<BytesImpl>(data);
    case kTextMessage:
      return std::make_unique<TextImpl>(data);
    default:
      return std::make_unique<PlainImpl>(data);
  }
}

}  // namespace cms::openwire
