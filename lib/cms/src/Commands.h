#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Messages.h"

namespace cms::openwire {

// Commands of OpenWire, version 12. A command's body here is all that follows
// its id and its wish for an answer.
enum Command : std::uint8_t {
  kWireFormatInfo = 1,
  kConnectionInfo = 3,
  kSessionInfo = 4,
  kConsumerInfo = 5,
  kProducerInfo = 6,
  kKeepAliveInfo = 10,
  kShutdownInfo = 11,
  kRemoveInfo = 12,
  kConnectionError = 16,
  kMessageDispatch = 21,
  kMessageAck = 22,
  kResponse = 30,
  kExceptionResponse = 31,
};

struct OutCommand {
  std::uint8_t type;
  std::string body;
};

std::string encodeFrame(const OutCommand& command, std::uint32_t id, bool wantsAnswer);

// Ids as they stand on the wire, objects with their type.
std::string connectionId(const std::string& name);
std::string sessionId(const std::string& connection, std::uint64_t session);
std::string consumerId(const std::string& connection, std::uint64_t session, std::uint64_t value);
std::string producerId(const std::string& connection, std::uint64_t session, std::uint64_t value);

std::string wireFormatFrame(int maxInactivityMs);
OutCommand connectionInfo(const std::string& id, const std::string& user,
                          const std::string& password, bool failover, bool reconnected);
OutCommand sessionInfo(const std::string& id);
OutCommand producerInfo(const std::string& id, const Destination* destination);
OutCommand consumerInfo(const std::string& id, const Destination& destination,
                        const std::string& selector);
OutCommand removeInfo(const std::string& id);
OutCommand sendMessage(const std::string& producer, std::uint64_t sequence,
                       const MessageContent& message);
OutCommand response(std::uint32_t correlationId);

struct WireFormat {
  std::uint32_t version;
  std::int64_t maxInactivityMs;
};
// Of a whole frame.
WireFormat parseWireFormat(std::string_view frame);

// A message that the broker hands to a consumer, with what its
// acknowledgement has to repeat.
struct Delivery {
  std::string consumer;              // encoded id
  std::unique_ptr<Message> message;  // null: a queue browser's end, not asked for here
  OutCommand acknowledgement;
};
// Of a MessageDispatch's body.
Delivery parseDispatch(std::string_view body);

}  // namespace cms::openwire
