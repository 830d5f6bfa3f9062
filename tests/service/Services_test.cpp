// The event log's clients and processors against bytes, without a carrier.
#include <gtest/gtest.h>
#include <thrift/TApplicationException.h>

#include <random>

#include "ElogHandler.h"
#include "TDX_Protocol.h"

namespace {

using apache::thrift::TApplicationException;
using testsupport::action;
using testsupport::ElogHandler;

class Carrier : public TDX_Transport {
 public:
  using TDX_Transport::TDX_Transport;
  void on_buffer_ready(const std::string& buf) override { sent = buf; }
  std::string on_buffer_empty() override { return reply; }
  std::string sent, reply;
};

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
std::string field(int type, int id) {
  return {static_cast<char>(type), 0, static_cast<char>(id)};
}
const std::string kStop(1, '\0');
const std::string kNoParameters = std::string("\x0b\x0b") + i32(0);
// submitAction's arguments: an action that is all empty, or with a message.
std::string arguments(const std::string& message) {
  return field(12, 1) + field(13, 2) + "\x0b\x0b" + i32(1) + text("msg") + text(message) + kStop +
         kStop;
}
std::string applicationException(int type, const std::string& message) {
  return field(11, 1) + text(message) + field(8, 2) + i32(static_cast<std::uint32_t>(type)) + kStop;
}
const std::string kSuccess =
    field(12, 0) + field(13, 1) + "\x0b\x0b" + i32(1) + text("echo") + text("yes") + kStop;
const std::string kRefusal = field(12, 1) + field(11, 1) + text("no room") + kStop;

struct Client {
  std::shared_ptr<Carrier> carrier = std::make_shared<Carrier>();
  NV_TDX::ELogClient elog{std::make_shared<TDX_Protocol>(carrier)};
};

// The failure that a reply gives: type and text, or what came back.
std::string outcome(const std::string& reply) {
  Client client;
  client.carrier->reply = reply;
  try {
    return "echo " + testsupport::submit(client.elog, "hello");
  } catch (const TApplicationException& failure) {
    return "application " + std::to_string(failure.getType()) + " " + failure.what();
  } catch (const NV_TDX::FwException& failure) {
    return "service " + failure.what_;
  } catch (const apache::thrift::TException& failure) {
    return "other";
  }
}

std::string answerTo(const std::string& request, std::shared_ptr<ElogHandler> handler = nullptr) {
  if (!handler) handler = std::make_shared<ElogHandler>();
  const auto carrier = std::make_shared<Carrier>(0, request);
  const auto protocol = std::make_shared<TDX_Protocol>(carrier);
  NV_TDX::ELogProcessor(handler).process(protocol, protocol, nullptr);
  return carrier->sent;
}

}  // namespace

TEST(ElogClient, OneWayCallsTravelAsCalls) {
  Client client;
  client.elog.submitActionA({});
  const std::string empty = field(11, 1) + text("") + field(13, 2) + kNoParameters + field(15, 3) +
                            "\x0c" + i32(0) + kStop + kStop;
  EXPECT_EQ(head(1, "submitActionA") + field(12, 1) + empty, client.carrier->sent);

  NV_TDX::ELogNotificationClient notification(std::make_shared<TDX_Protocol>(client.carrier));
  notification.eventNotification({});
  EXPECT_EQ(0U, client.carrier->sent.find(head(1, "eventNotification") + field(12, 1)));
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
      {"success", head(2, "submitAction") + kSuccess + kStop, "echo yes"},
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
    std::string request, answer;
  } cases[] = {
      {"unknown method", head(1, "erase", 5) + unread,
       head(3, "erase", 5) + applicationException(1, "Invalid method name: 'erase'")},
      {"one-way type", head(4, "submitActionA", 6) + unread,
       head(3, "submitActionA", 6) + applicationException(2, "")},
      {"reply type", head(2, "submitAction") + unread,
       head(3, "submitAction") + applicationException(2, "")},
      {"refused", head(1, "submitAction", 3) + arguments("refuse"),
       head(2, "submitAction", 3) + field(12, 1) + field(11, 1) + text("no room") + field(11, 2) +
           text("E7") + kStop + kStop},
      {"broken handler", head(1, "submitAction", 4) + arguments("break"),
       head(3, "submitAction", 4) + applicationException(0, "disk on fire")},
      {"one-way method", head(1, "submitActionA") + arguments("x"), ""},
      {"one-way method that throws", head(1, "submitActionA") + field(12, 1) + kStop + kStop, ""},
  };
  for (const auto& c : cases) EXPECT_EQ(c.answer, answerTo(c.request)) << c.name;
}

// Whole messages cut short and bent: a defined end, in bounded time and
// memory, on both sides. The seed is fixed so that a failure comes again.
TEST(ElogServices, BrokenMessagesEndInADefinedWay) {
  const std::string request = head(1, "submitAction") + arguments("hello");
  const std::string reply = head(2, "submitAction") + kSuccess + kRefusal + kStop;
  const auto tryBoth = [](const std::string& asRequest, const std::string& asReply) {
    try {
      answerTo(asRequest);
    } catch (const std::exception&) {
    }
    EXPECT_FALSE(outcome(asReply).empty());
  };
  for (std::size_t size = 0; size < request.size(); ++size)
    tryBoth(request.substr(0, size), reply.substr(0, std::min(size, reply.size())));

  std::mt19937 random(4711);
  const auto byte = [&random] { return static_cast<char>(random() & 0xff); };
  for (int round = 0; round < 2000; ++round) {
    std::string bentRequest = request, bentReply = reply;
    for (int bends = 1 + static_cast<int>(random() % 4); bends > 0; --bends) {
      bentRequest[random() % request.size()] = byte();
      bentReply[random() % reply.size()] = byte();
    }
    tryBoth(bentRequest, bentReply);
    std::string noise(random() % 64, '\0');
    for (char& c : noise) c = byte();
    tryBoth(head(1, "submitAction") + noise, head(2, "submitAction") + noise);
  }
  // Nested deeper than any stack should follow.
  const std::string deep(100000 * 3, '\x0c');
  tryBoth(head(1, "x") + deep, head(2, "submitAction") + deep);
}
