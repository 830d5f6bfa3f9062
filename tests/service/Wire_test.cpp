// Service calls as bytes, over a carrier that the test makes up: transport,
// protocol, records of the event log, its clients and its processors.
#include <gtest/gtest.h>
#include <thrift/TApplicationException.h>

#include "ElogHandler.h"
#include "TDX_Protocol.h"

namespace {

using apache::thrift::TApplicationException;
using apache::thrift::protocol::TProtocolException;
using testsupport::action;
using testsupport::ElogHandler;
using Messages = std::vector<std::string>;

// Keeps what is sent, and delivers what the test put there.
class Carrier : public TDX_Transport {
 public:
  using TDX_Transport::TDX_Transport;
  void on_buffer_ready(const std::string& buf) override {
    if (broken) throw std::runtime_error("wire cut");
    sent.push_back(buf);
  }
  std::string on_buffer_empty() override {
    ++fetches;
    return next;
  }
  bool broken = false;
  Messages sent;
  std::string next;
  int fetches = 0;
};

void put(TDX_Transport& transport, const std::string& text) {
  transport.write(reinterpret_cast<const std::uint8_t*>(text.data()),
                  static_cast<std::uint32_t>(text.size()));
}

// Reads over eight '-' and returns them; `read` must claim all of `count`.
std::string get(TDX_Transport& transport, std::uint32_t count) {
  std::string target(8, '-');
  EXPECT_EQ(count, transport.read(reinterpret_cast<std::uint8_t*>(target.data()), count));
  return target;
}

std::string i32(std::uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
          static_cast<char>(value >> 8), static_cast<char>(value)};
}
std::string text(const std::string& value) {
  return i32(static_cast<std::uint32_t>(value.size())) + value;
}
// Types: 1 call, 2 reply, 3 exception, 4 one-way.
std::string head(int type, const std::string& name, std::uint32_t seqid = 0) {
  return i32(0x80010000U | static_cast<std::uint32_t>(type)) + text(name) + i32(seqid);
}
// One field's head: type, id. Types: 2 bool, 6 i16, 8 i32, 11 string, 12
// struct, 13 map, 14 set, 15 list.
std::string field(int type, int id) {
  return {static_cast<char>(type), 0, static_cast<char>(id)};
}
const std::string kStop(1, '\0');
const std::string kNoParameters = "\x0b\x0b" + i32(0);
std::string parameter(const std::string& name, const std::string& value) {
  return "\x0b\x0b" + i32(1) + text(name) + text(value);
}
// submitAction's: an action with nothing but a message.
std::string arguments(const std::string& message) {
  return field(12, 1) + field(13, 2) + parameter("msg", message) + kStop + kStop;
}
std::string applicationException(int type, const std::string& message) {
  return field(11, 1) + text(message) + field(8, 2) + i32(static_cast<std::uint32_t>(type)) + kStop;
}
const std::string kSuccess = field(12, 0) + field(13, 1) + parameter("echo", "yes") + kStop;
const std::string kRefusal = field(12, 1) + field(11, 1) + text("no room") + kStop;

// The failure that a reply gives: type and text, or what came back.
std::string outcome(const std::string& reply) {
  const auto carrier = std::make_shared<Carrier>();
  carrier->next = reply;
  NV_TDX::ELogClient client(std::make_shared<TDX_Protocol>(carrier));
  try {
    return "echo " + testsupport::submit(client, "hello");
  } catch (const TApplicationException& failure) {
    return "application " + std::to_string(failure.getType()) + " " + failure.what();
  } catch (const NV_TDX::FwException& failure) {
    return "service " + failure.what_;
  } catch (const apache::thrift::TException&) {
    return "other";
  }
}

Messages answersTo(const std::string& request) {
  const auto carrier = std::make_shared<Carrier>(0, request);
  const auto protocol = std::make_shared<TDX_Protocol>(carrier);
  NV_TDX::ELogProcessor(std::make_shared<ElogHandler>()).process(protocol, protocol, nullptr);
  return carrier->sent;
}

}  // namespace

TEST(Transport, OneMessageFromWritesAndOneIntoReads) {
  Carrier carrier;
  put(carrier, "ab");
  put(carrier, std::string("\0c", 2));
  carrier.flush();
  EXPECT_TRUE(carrier.sent.empty());
  carrier.broken = true;
  EXPECT_THROW(carrier.writeEnd(), std::runtime_error);
  carrier.broken = false;  // what could not be sent is kept
  carrier.writeEnd();
  carrier.writeEnd();
  EXPECT_EQ((Messages{std::string("ab\0c", 4), ""}), carrier.sent);

  carrier.next = "reply";
  EXPECT_EQ("re------", get(carrier, 2));
  EXPECT_EQ("ply-----", get(carrier, 3));
  EXPECT_EQ("--------", get(carrier, 0));
  EXPECT_EQ(1, carrier.fetches) << "a message that is read out is still the one at hand";
  carrier.readEnd();
  get(carrier, 0);
  EXPECT_EQ(2, carrier.fetches) << "even a read of nothing waits for a message";
}

TEST(Transport, ReadBehindTheEndClaimsSuccessAndEndsTheTransport) {
  Carrier carrier;
  carrier.next = "abc";
  EXPECT_EQ("abc-----", get(carrier, 8));
  carrier.readEnd();
  put(carrier, "never sent");
  carrier.writeEnd();
  EXPECT_EQ(Messages{""}, carrier.sent);
  EXPECT_EQ("--------", get(carrier, 8));

  Carrier other;
  other.next = "ab";
  std::string target(4, '-');
  other.readAll(reinterpret_cast<std::uint8_t*>(target.data()), 4);
  EXPECT_EQ(std::string("ab\0\0", 4), target);
}

TEST(Transport, AcceptedRequestIsReadWithoutTheCarrier) {
  Carrier accepted(77, "request");
  EXPECT_EQ(77U, accepted.user_id());
  EXPECT_EQ("request-", get(accepted, 7));
  EXPECT_EQ(0, accepted.fetches);
  accepted.readEnd();
  put(accepted, "reply");
  accepted.writeEnd();
  EXPECT_EQ(Messages{"reply"}, accepted.sent);

  Carrier empty(1, "");
  empty.next = "x";
  EXPECT_EQ("x-------", get(empty, 1));
}

// Counts that only a liar writes, among them those whose product with an
// element's size passes 32 bits.
TEST(Protocol, MadeUpSizesAreRefusedBeforeAnythingIsAllocated) {
  const auto over = [](const std::string& bytes) {
    return TDX_Protocol(std::make_shared<Carrier>(0, bytes + std::string(12, '\0')));
  };
  apache::thrift::protocol::TType key, value;
  std::uint32_t size = 0;
  std::string string;
  for (const std::uint32_t count : {0x7fffffffU, 0x20000001U, 0x10000001U, 13U, 0xffffffffU}) {
    SCOPED_TRACE(count);
    for (const std::string element : {"\x0a", "\x0b", "\x0c"}) {
      EXPECT_THROW(over(element + i32(count)).readListBegin(value, size), TProtocolException);
      EXPECT_THROW(over(element + i32(count)).readSetBegin(value, size), TProtocolException);
    }
    EXPECT_THROW(over("\x0b\x0b" + i32(count)).readMapBegin(key, value, size), TProtocolException);
  }
  EXPECT_THROW(over(i32(0x7fffffff) + "text").readString(string), TProtocolException);
}

TEST(Records, OneWayCallsOfActionsTravelAsCalls) {
  const auto carrier = std::make_shared<Carrier>();
  NV_TDX::Action sent = action("hi");
  sent.actions.resize(1);
  sent.actions[0].domain = "d";
  NV_TDX::ELogClient(std::make_shared<TDX_Protocol>(carrier)).submitActionA(sent);
  const std::string nested =
      field(11, 1) + text("") + field(11, 2) + text("d") + field(13, 3) + kNoParameters + kStop;
  EXPECT_EQ(Messages{head(1, "submitActionA") + field(12, 1) +  //
                     field(11, 1) + text("create") +            //
                     field(13, 2) + parameter("msg", "hi") +    //
                     field(15, 3) + "\x0c" + i32(1) + nested + kStop + kStop},
            carrier->sent);
}

TEST(Records, EventsKeepUnknownEnumValuesAndDropFieldElevenAndDuplicates) {
  const auto carrier = std::make_shared<Carrier>(
      0, field(8, 5) + i32(9) + field(8, 4) + i32(0xfffffffd) + field(11, 11) + text("once") +
             field(14, 13) + "\x08" + i32(3) + i32(7) + i32(2) + i32(7) + kStop);
  const auto protocol = std::make_shared<TDX_Protocol>(carrier);
  NV_TDX::Event event;
  event.read(protocol.get());
  carrier->readEnd();
  EXPECT_EQ(9, static_cast<int>(event.priority));
  EXPECT_EQ(-3, static_cast<int>(event.eventtype));
  event.utc.when = 1;
  event.utc.from = 2;
  NV_TDX::ELogNotificationClient(protocol).eventNotification(event);
  const std::string& bytes = carrier->sent.at(0);
  EXPECT_EQ(0U, bytes.find(head(1, "eventNotification") + field(12, 1)));
  EXPECT_NE(std::string::npos, bytes.find(field(8, 5) + i32(9)));
  EXPECT_NE(std::string::npos, bytes.find(field(14, 13) + "\x08" + i32(2) + i32(2) + i32(7)));
  EXPECT_NE(std::string::npos,
            bytes.find(field(12, 9) + field(8, 1) + i32(1) + field(8, 2) + i32(2)));
  EXPECT_EQ(std::string::npos, bytes.find("once"));
  EXPECT_EQ(field(2, 17) + kStop + kStop + kStop, bytes.substr(bytes.size() - 6));
}

TEST(Records, ReadingSkipsWhatDoesNotMatchAndReplacesWhatDoes) {
  const auto carrier =
      std::make_shared<Carrier>(0, field(8, 1) + i32(5) +                    // wrong type
                                       field(11, 99) + text("newer peer") +  // unknown id
                                       field(13, 2) + parameter("a", "b") +  //
                                       field(15, 3) + "\x0c" + i32(0) + kStop);
  TDX_Protocol protocol(carrier);
  NV_TDX::Action read = action("old");
  read.actions.resize(3);
  read.read(&protocol);
  EXPECT_EQ("create", read.name);
  EXPECT_FALSE(read.__isset.name);
  EXPECT_EQ((NV_TDX::TParameters{{"a", "b"}}), read.parameters);
  EXPECT_TRUE(read.__isset.parameters);
  EXPECT_TRUE(read.actions.empty());
}

TEST(Records, OrderAndFingerprints) {
  NV_TDX::NestedAction a, b;
  a.name = b.name = "same";
  b.parameters["x"] = "1";
  EXPECT_TRUE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_TRUE(a != b);
  EXPECT_STREQ("63855B6220A62BC25EBF1C31592DB703", NV_TDX::Event::ascii_fingerprint);
  EXPECT_EQ(0x07, NV_TDX::FwException::binary_fingerprint[0]);
  EXPECT_EQ(0x72, NV_TDX::FwException::binary_fingerprint[15]);
}

TEST(ElogClient, RepliesAndTheirFaults) {
  const std::string brokenName =
      TApplicationException(TApplicationException::WRONG_METHOD_NAME).what();
  const std::string brokenType =
      TApplicationException(TApplicationException::INVALID_MESSAGE_TYPE).what();
  const struct {
    const char* name;
    std::string reply, outcome;
  } cases[] = {
      {"another sequence id", head(2, "submitAction", 9) + kSuccess + kStop, "echo yes"},
      {"success beside a refusal", head(2, "submitAction") + kSuccess + kRefusal + kStop,
       "echo yes"},
      {"refusal", head(2, "submitAction") + kRefusal + kStop, "service no room"},
      {"neither", head(2, "submitAction") + kStop,
       "application 5 submitAction failed: unknown result"},
      {"another method", head(2, "submitActionA") + kSuccess + kStop,
       "application 3 " + brokenName},
      {"a call for a reply", head(1, "submitAction") + kSuccess + kStop,
       "application 2 " + brokenType},
      {"exception under another name", head(3, "whatever") + applicationException(1, "unheard of"),
       "application 1 unheard of"},
      {"nothing at all", "", "application 2 " + brokenType},
  };
  for (const auto& c : cases) EXPECT_EQ(c.outcome, outcome(c.reply)) << c.name;
}

TEST(ElogProcessor, AnswersByTypeAndName) {
  const std::string unread = field(12, 1) + field(11, 7) + text("x") + kStop + kStop;
  const struct {
    const char* name;
    std::string request;
    Messages answers;
  } cases[] = {
      {"unknown method",
       head(1, "erase", 5) + unread,
       {head(3, "erase", 5) + applicationException(1, "Invalid method name: 'erase'")}},
      {"one-way type",
       head(4, "submitActionA", 6) + unread,
       {head(3, "submitActionA", 6) + applicationException(2, "")}},
      {"reply type",
       head(2, "submitAction") + unread,
       {head(3, "submitAction") + applicationException(2, "")}},
      {"refused",
       head(1, "submitAction", 3) + arguments("refuse"),
       {head(2, "submitAction", 3) + field(12, 1) + field(11, 1) + text("no room") + field(11, 2) +
        text("E7") + kStop + kStop}},
      {"broken handler",
       head(1, "submitAction", 4) + arguments("break"),
       {head(3, "submitAction", 4) + applicationException(0, "disk on fire")}},
      {"one-way method", head(1, "submitActionA") + arguments("x"), {}},
      {"one-way method that throws", head(1, "submitActionA") + field(12, 1) + kStop + kStop, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(c.answers, answersTo(c.request)) << c.name;
}

// A defined end, in bounded time and memory, on both sides.
TEST(ElogServices, MessagesThatAreCutShortOrNestedDeepEndInADefinedWay) {
  const std::string request = head(1, "submitAction") + arguments("hello");
  const std::string reply = head(2, "submitAction") + kSuccess + kRefusal + kStop;
  const std::string deep(100000 * 3, '\x0c');
  const auto tryBoth = [](const std::string& asRequest, const std::string& asReply) {
    try {
      answersTo(asRequest);
    } catch (const std::exception&) {
    }
    EXPECT_FALSE(outcome(asReply).empty());
  };
  for (std::size_t size = 0; size < request.size(); ++size)
    tryBoth(request.substr(0, size), reply.substr(0, size));
  tryBoth(head(1, "x") + deep, head(2, "submitAction") + deep);
}
