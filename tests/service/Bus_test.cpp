// Service calls over a real message bus.
#include <gmock/gmock.h>
#include <thrift/transport/TTransportException.h>

#include "ElogHandler.h"
#include "Servers.h"
#include "TDX_MBUS_Transport_Impl.h"

namespace {

using apache::thrift::transport::TTransportException;
using Kelvane::Message;
using testing::HasSubstr;
using testsupport::action;
using testsupport::BusServer;
using testsupport::failureOf;
using testsupport::RunningElog;
using testsupport::submit;

TDX_Service serviceOn(const BusServer& bus) {
  return {bus.address(), bus.port(), "dummy", "dummy", TDX_Service::Transport_MBUS};
}

// A party on the bus below the transports.
struct Party {
  explicit Party(const BusServer& bus)
      : messenger(bus.address() + ":" + std::to_string(bus.port())) {
    messenger.start();
  }
  void listen(const Message::Header& header) {
    EXPECT_TRUE(messenger.subscribe(header, nullptr, true));
  }
  Message received() {
    Message message;
    EXPECT_TRUE(messenger.recv(&message, nullptr));
    return message;
  }
  void send(const Message::Header& header, const std::string& body,
            const std::vector<std::string>& attachments, std::uint32_t user = 0) {
    Message message(header, body);
    for (const std::string& content : attachments) message.addAttachment("response0", content);
    message.userid_ = user;
    messenger.send(message, nullptr);
  }
  Kelvane::Messenger messenger;
};

Message::Header headerOf(const std::string& service) {
  return TDX_MBUS_Transport_Impl("", "", 0, "", "").get_subscription_header(service);
}

}  // namespace

TEST(BusAddress, OfServiceNames) {
  // Halves "tdx.ev" and "entlog"; a single letter leaves the first half empty.
  const Message::Header header = headerOf("123456789123456789");
  EXPECT_EQ("38.57.244.203", header.devID.IP);  // CRC-32 cbf43926, lowest byte first
  EXPECT_EQ(static_cast<int>(0xcbf43926U), header.devID.id);
  EXPECT_EQ("0.0.0.0", headerOf("1").devID.IP);
  EXPECT_EQ(static_cast<int>(0x83dcefb7U), headerOf("1").devID.id);
  EXPECT_EQ(0x4000U, header.ctxType & header.evtType & header.procLvl);
  EXPECT_EQ(-1, header.subscriptionID);
  std::set<std::string> different;
  for (int i = 0; i < 100; ++i) different.insert(headerOf("").devID.IP);
  EXPECT_EQ(100U, different.size());
}

TEST(BusService, CallsFailuresAndOrderlyEnd) {
  BusServer bus;
  TDX_Service service = serviceOn(bus);
  RunningElog elog(service);
  testsupport::expectCalls(
      elog, [&] { return serviceOn(bus); }, 4, 250);
}

TEST(BusService, LateReplyIsTakenByTheNextCall) {
  BusServer bus;
  TDX_Service service = serviceOn(bus);
  RunningElog elog(service, 1);  // that answers in order
  auto client = elog.client();
  const auto start = std::chrono::steady_clock::now();
  try {
    submit(*client, "wait");
    ADD_FAILURE() << "no time-out";
  } catch (const TTransportException& failure) {
    EXPECT_EQ(TTransportException::TIMED_OUT, failure.getType());
    EXPECT_STREQ("Server read timed out", failure.what());
  }
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(4900));
  EXPECT_LT(waited, std::chrono::milliseconds(7000));
  elog.handler->release();
  EXPECT_EQ("wait", submit(*client, "next"));
}

TEST(BusService, FormOfCallsAndRepliesAmongForeignAndBrokenMessages) {
  BusServer bus;
  TDX_Service service = serviceOn(bus);
  RunningElog elog(service, 1);
  auto client = elog.client();
  Party party(bus);
  party.listen(headerOf("raw"));
  NV_TDX::ELogClient(serviceOn(bus).proto_("raw")).send_submitAction(action("who"));
  const Message request = party.received();
  EXPECT_THAT(request.body_, testing::MatchesRegex("ReplyTo: [0-9.]+ -?[0-9]+"));
  EXPECT_EQ("response0", request.getAttachment(0).first);
  const std::string call = request.getAttachment(0).second;

  const Message::Header address = headerOf(RunningElog::kName);
  Message::Header unmarked = address;
  unmarked.ctxType = unmarked.evtType = unmarked.procLvl = 1;
  testing::internal::CaptureStderr();
  party.send(unmarked, "ReplyTo: 1.2.3.4 5", {"x"});
  party.send(address, "ReplyTo: 1.2.3.4", {"x"});
  party.send(address, "AnswerTo: 1.2.3.4 5", {"x"});
  party.send(address, "ReplyTo: " + std::string(4000, '9') + " 5", {"x"});
  party.send(address, "ReplyTo: 1.2.3.4 5", {});
  party.send(address, "ReplyTo: 1.2.3.4 5", {call.substr(0, 20) + std::string(5, '\x0f')});

  // One marked class is enough, whichever it is; each request is seen with its own user.
  Message::Header half = address;
  half.evtType = half.procLvl = 1;
  const Message::Header own = headerOf("");
  party.listen(own);
  for (const std::uint32_t user : {4242U, 7U}) {
    party.send(half, "ReplyTo: " + own.devID.IP + " " + std::to_string(own.devID.id), {call}, user);
    const Message reply = party.received();
    EXPECT_EQ("response0", reply.body_);
    EXPECT_EQ(0x4000U, reply.header_.evtType);
    EXPECT_EQ(-1, reply.header_.subscriptionID);
    ASSERT_EQ(1U, reply.mAttachments.size());
    EXPECT_EQ("response0", reply.getAttachment(0).first);
    EXPECT_THAT(reply.getAttachment(0).second, HasSubstr("user " + std::to_string(user)));
    std::swap(half.ctxType, half.procLvl);
  }
  EXPECT_EQ(0U, service.getUserId());
  EXPECT_EQ("alive", submit(*client, "alive"));
  const std::string log = testing::internal::GetCapturedStderr();
  EXPECT_EQ(4, testsupport::occurrences(log, "Foreign message")) << log;
  EXPECT_THAT(log, HasSubstr("TDX_Service_Impl "));
}

TEST(BusService, OutlivesTheBus) {
  BusServer bus;
  TDX_Service service = serviceOn(bus);
  RunningElog elog(service);
  auto client = elog.client();
  bus.stop();
  EXPECT_THAT(failureOf([&] { serviceOn(bus).proto_("x"); }),
              testing::AllOf(HasSubstr("Failed to create client: : Exception "),
                             HasSubstr("NetworkException"), HasSubstr("cannot connect")));
  bus.restart();
  EXPECT_TRUE(elog.reached(*client, "came back"));
  EXPECT_EQ("again", submit(*client, "again"));
}

TEST(BusService, RefusedSubscription) {
  BusServer bus(
      "127.0.0.1", 0,
      "authorization { users = [ { user: a, password: b, permissions: { subscribe: { deny: "
      "\"bus.>\" } } } ] }\nno_auth_user: a\n");
  EXPECT_EQ(
      "Subscribe failed: : Exception St13runtime_error: Server has not allowed this subscription",
      failureOf([&] { serviceOn(bus).proto_("x"); }));
}
