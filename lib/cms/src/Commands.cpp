#include "Commands.h"

#include <zlib.h>

#include "ModifiedUtf8.h"
#include "Socket.h"
#include "Wire.h"
#include "cms/CMSException.h"
#include "cms/DeliveryMode.h"

namespace cms::openwire {
namespace {

constexpr std::uint32_t kVersion = 12;
constexpr char kMagic[] = "ActiveMQ";
constexpr std::uint8_t kBool = 1, kInt = 5, kLong = 6, kString = 9;  // of property values
constexpr std::uint32_t kQueuePrefetch = 1000, kTopicPrefetch = 32767;

std::string inflateAll(std::string_view packed) {
  z_stream stream{};
  if (inflateInit(&stream) != Z_OK) throw CMSException("cannot unpack a message");
  const std::unique_ptr<z_stream, decltype(&::inflateEnd)> guard(&stream, ::inflateEnd);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
  stream.avail_in = static_cast<uInt>(packed.size());
  std::string out;
  int state = Z_OK;
  while (state == Z_OK) {
    const std::size_t start = out.size();
    if (start > Socket::kMaxFrame) throw CMSException("a packed message is too long");
    out.resize(start + 65536);
    stream.next_out = reinterpret_cast<Bytef*>(out.data() + start);
    stream.avail_out = 65536;
    state = inflate(&stream, Z_NO_FLUSH);
    out.resize(out.size() - stream.avail_out);
  }
  if (state != Z_STREAM_END) throw CMSException("a packed message is malformed");
  return out;
}

std::string decodeBody(std::uint8_t type, std::string_view content, bool compressed) {
  if (content.empty()) return {};
  if (type == kBytesMessage) {
    if (!compressed) return std::string(content);
    Reader in(content);
    in.u32();  // the size when unpacked
    return inflateAll(content.substr(4));
  }
  if (type != kTextMessage) return {};
  const std::string plain = compressed ? inflateAll(content) : std::string(content);
  Reader in(plain);
  return fromModifiedUtf8(in.take(in.u32()));
}

std::string encodeBody(const MessageContent& message) {
  const std::string& body = message.data.body;
  if (message.wireType() == kPlainMessage) return Writer().null().data();
  if (message.wireType() == kBytesMessage) return Writer().bytes(body).data();
  const std::string text = toModifiedUtf8(body);
  return Writer()
      .bytes(Writer().u32(static_cast<std::uint32_t>(text.size())).raw(text).data())
      .data();
}

std::string messageIdText(std::string_view object) {
  Reader in(object);
  if (!in.boolean()) return {};
  in.u8();
  if (const auto view = in.string()) return *view;
  std::string text;
  if (in.boolean()) {
    in.u8();
    text = in.string().value_or("");
    const std::uint64_t value = in.u64();
    text += ":" + std::to_string(in.u64()) + ":" + std::to_string(value);
  }
  return text + ":" + std::to_string(in.u64());
}

struct Received {
  std::uint8_t type;
  MessageData data;
  std::string id;  // encoded
};

Received parseMessage(Reader& in) {
  Received message{in.u8(), {}, {}};
  MessageData& data = message.data;
  in.u32();      // command id
  in.boolean();  // wish for an answer
  in.object();   // producer
  data.destination = decodeDestination(in.object());
  in.object();  // transaction
  in.object();  // original destination
  message.id = in.object();
  data.messageId = messageIdText(message.id);
  in.object();  // original transaction
  in.string();  // group
  in.u32();
  data.correlationId = in.string();
  data.deliveryMode = in.boolean() ? DeliveryMode::PERSISTENT : DeliveryMode::NON_PERSISTENT;
  data.expiration = static_cast<long long>(in.u64());
  data.priority = in.u8();
  data.replyTo = decodeDestination(in.object());
  data.timestamp = static_cast<long long>(in.u64());
  data.type = in.string();
  const std::string_view content = in.bytes().value_or("");
  in.bytes();   // properties
  in.object();  // data structure
  in.object();  // target consumer
  const bool compressed = in.boolean();
  data.redelivered = in.u32() > 0;
  try {
    data.body = decodeBody(message.type, content, compressed);
  } catch (const CMSException&) {
    // Its receiver has to see that it came, or it would come for ever.
    message.type = kPlainMessage;
  }
  return message;  // fields of the broker's own follow
}

}  // namespace

std::string encodeFrame(const OutCommand& command, std::uint32_t id, bool wantsAnswer) {
  return Writer().u8(command.type).u32(id).boolean(wantsAnswer).raw(command.body).data();
}

std::string connectionId(const std::string& name) {
  return Writer().boolean(true).u8(120).string(name).data();
}

std::string sessionId(const std::string& connection, std::uint64_t session) {
  return Writer().boolean(true).u8(121).string(connection).u64(session).data();
}

// The orders of the last two fields really differ.
std::string consumerId(const std::string& connection, std::uint64_t session, std::uint64_t value) {
  return Writer().boolean(true).u8(122).string(connection).u64(session).u64(value).data();
}

std::string producerId(const std::string& connection, std::uint64_t session, std::uint64_t value) {
  return Writer().boolean(true).u8(123).string(connection).u64(value).u64(session).data();
}

std::string wireFormatFrame(int maxInactivityMs) {
  Writer map;
  const auto key = [&map](const std::string& name) -> Writer& {
    return map.u16(static_cast<std::uint16_t>(name.size())).raw(name);
  };
  map.u32(7);
  for (const char* off :
       {"TightEncodingEnabled", "CacheEnabled", "StackTraceEnabled", "SizePrefixDisabled"})
    key(off).u8(kBool).boolean(false);
  key("TcpNoDelayEnabled").u8(kBool).boolean(true);
  const auto inactivity = static_cast<std::uint64_t>(maxInactivityMs);
  key("MaxInactivityDuration").u8(kLong).u64(inactivity);
  key("MaxInactivityDurationInitalDelay").u8(kLong).u64(inactivity);
  return Writer().u8(kWireFormatInfo).raw(kMagic).u32(kVersion).bytes(map.data()).data();
}

WireFormat parseWireFormat(std::string_view frame) {
  Reader in(frame);
  if (in.u8() != kWireFormatInfo || in.take(sizeof kMagic - 1) != kMagic)
    throw CMSException("the peer is no ActiveMQ broker");
  WireFormat format{in.u32(), 0};
  if (format.version < kVersion)
    throw CMSException("the broker speaks version " + std::to_string(format.version) +
                       " of OpenWire, 12 is needed");
  Reader map(in.bytes().value_or(std::string_view("\0\0\0\0", 4)));
  for (std::uint32_t left = map.u32(); left > 0; --left) {
    const std::string_view name = map.take(map.u16());
    std::int64_t value = 0;
    switch (map.u8()) {
      case kBool:
        value = map.u8();
        break;
      case kInt:
        value = map.u32();
        break;
      case kLong:
        value = static_cast<std::int64_t>(map.u64());
        break;
      case kString:
        map.take(map.u16());
        break;
      default:
        return format;  // a form of a later broker: what matters came first
    }
    if (name == "MaxInactivityDuration") format.maxInactivityMs = value;
  }
  return format;
}

OutCommand connectionInfo(const std::string& id, const std::string& user,
                          const std::string& password, bool failover, bool reconnected) {
  Reader in(id);
  in.boolean();
  in.u8();
  Writer out;
  out.raw(id).string(in.string());  // the client id is the connection's
  const auto credential = [&out](const std::string& text) {
    text.empty() ? out.null() : out.string(text);
  };
  credential(password);
  credential(user);
  out.nulls(3).boolean(true);  // broker path, master connector, manageable; client master
  out.boolean(failover).boolean(reconnected).null();
  return {kConnectionInfo, out.data()};
}

OutCommand sessionInfo(const std::string& id) {
  return {kSessionInfo, id};
}

OutCommand producerInfo(const std::string& id, const Destination* destination) {
  // Broker path, asynchronous dispatch, window.
  return {kProducerInfo,
          Writer().raw(id).raw(encodeDestination(destination)).nulls(2).u32(0).data()};
}

OutCommand consumerInfo(const std::string& id, const Destination& destination,
                        const std::string& selector) {
  const bool queue = dynamic_cast<const Queue*>(&destination) != nullptr;
  Writer out;
  out.raw(id).boolean(false).raw(encodeDestination(&destination));
  out.u32(queue ? kQueuePrefetch : kTopicPrefetch).u32(0).boolean(true);  // no pending limit
  selector.empty() ? out.null() : out.string(selector);
  out.nulls(2);        // client id, subscription name
  out.nulls(3).u8(0);  // no local, exclusive, retroactive; priority
  out.nulls(2);        // broker path, additional predicate
  out.nulls(4);        // network subscription, optimized and range acks, network path
  return {kConsumerInfo, out.data()};
}

OutCommand removeInfo(const std::string& id) {
  return {kRemoveInfo, Writer().raw(id).u64(0).data()};
}

OutCommand sendMessage(const std::string& producer, std::uint64_t sequence,
                       const MessageContent& message) {
  const MessageData& data = message.data;
  const std::string destination = encodeDestination(data.destination.get());
  Writer out;
  out.raw(producer).raw(destination).null().null();  // transaction, original destination
  out.boolean(true).u8(110).null().raw(producer).u64(sequence).u64(0);
  out.null().null().u32(0);  // original transaction, group and its sequence
  out.string(data.correlationId).boolean(data.deliveryMode == DeliveryMode::PERSISTENT);
  out.u64(static_cast<std::uint64_t>(data.expiration)).u8(static_cast<std::uint8_t>(data.priority));
  out.raw(encodeDestination(data.replyTo.get())).u64(static_cast<std::uint64_t>(data.timestamp));
  out.string(data.type).raw(encodeBody(message));
  out.nulls(4).u32(0);       // properties, data structure, target, compressed; redeliveries
  out.null().u64(0).null();  // broker path, arrival, user
  out.nulls(2).null();       // by bridge, droppable; cluster
  out.u64(0).u64(0).null();  // broker's times, first of group
  return {message.wireType(), out.data()};
}

OutCommand response(std::uint32_t correlationId) {
  return {kResponse, Writer().u32(correlationId).data()};
}

Delivery parseDispatch(std::string_view body) {
  Reader in(body);
  Delivery delivery;
  const std::string_view consumer = in.object();
  const std::string_view destination = in.object();
  delivery.consumer = consumer;
  if (!in.boolean()) return delivery;
  const Received received = parseMessage(in);
  delivery.message = makeMessage(received.type, received.data);
  constexpr std::uint8_t kStandardAck = 2;
  delivery.acknowledgement = {kMessageAck, Writer()
                                               .raw(destination)
                                               .null()  // transaction
                                               .raw(consumer)
                                               .u8(kStandardAck)
                                               .raw(received.id)
                                               .raw(received.id)
                                               .u32(1)
                                               .null()  // cause of a poison ack
                                               .data()};
  return delivery;
}

}  // namespace cms::openwire
