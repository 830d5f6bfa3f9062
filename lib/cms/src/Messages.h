#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "cms/BytesMessage.h"
#include "cms/Queue.h"
#include "cms/TextMessage.h"
#include "cms/Topic.h"

namespace cms::openwire {

// Types of destinations and messages in OpenWire.
constexpr std::uint8_t kQueue = 100, kTopic = 101, kTemporaryQueue = 102, kTemporaryTopic = 103;
constexpr std::uint8_t kPlainMessage = 23, kBytesMessage = 24, kTextMessage = 28;

// A destination of either kind by its type on the wire.
std::unique_ptr<Destination> makeDestination(std::uint8_t type, const std::string& name);
// The object on the wire, or its null.
std::string encodeDestination(const Destination* destination);
// Null for a null and for what is no destination.
std::unique_ptr<Destination> decodeDestination(std::string_view object);

// What a message of any kind holds.
struct MessageData {
  std::shared_ptr<const Destination> destination, replyTo;
  std::optional<std::string> correlationId, type;
  std::string messageId;
  std::string body;  // bytes, or text as UTF-8
  int deliveryMode = 0, priority = 4;
  bool redelivered = false;
  long long timestamp = 0, expiration = 0;
};

// The inside of a message, reached by a dynamic cast from its interface.
class MessageContent {
 public:
  explicit MessageContent(const MessageData& content) : data(content) {}
  virtual ~MessageContent() = default;
  virtual std::uint8_t wireType() const = 0;
  MessageData data;
};

// A message of the type on the wire; one that is neither text nor bytes is a
// plain message without a body.
std::unique_ptr<Message> makeMessage(std::uint8_t wireType, const MessageData& data);

}  // namespace cms::openwire
