// Service calls over a real message bus.
#include <gmock/gmock.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TTransportException.h>

#include "ElogHandler.h"
#include "Exceptions.h"
#include "Servers.h"
#include "TDX_MBUS_Transport_Impl.h"
#include "TDX_Protocol.h"

namespace {

using apache::thrift::transport::TTransportException;
using Kelvane::Message;
using testing::HasSubstr;
using testsupport::action;
using testsupport::BusServer;
using testsupport::RunningElog;
using testsupport::submit;

TDX_Service serviceOn(const BusServer& bus) {
  return {bus.address(), bus.port(), "dummy", "dummy", TDX_Service::Transport_MBUS};
}

std::string failureOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
  return "no failure";
}

// A party on the bus below the transports.
struct Party {
  explicit Party(const BusServer& bus)
      : messenger(bus.address() + ":" + std::to_string(bus.port())) {
    messenger.start();
  }
  void send(const Message::Header& header, const std::string& body,
            const std::vector<std::string>& attachments) {
    Message message(header, body);
    for (const std::string& content : attachments) message.addAttachment("response0", content);
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
  auto client = elog.client();
  EXPECT_EQ("yes", submit(*client, "yes"));
  EXPECT_THROW(submit(*client, "refuse"), NV_TDX::FwException);
  EXPECT_THROW(submit(*client, "break"), apache::thrift::TApplicationException);
  client->submitActionA(action("one way"));
  EXPECT_EQ("after", submit(*client, "after"));

  std::unique_ptr<NV_TDX::ELogClient> orphan;
  {
    TDX_Service shortLived = serviceOn(bus);
    orphan = std::make_unique<NV_TDX::ELogClient>(shortLived.proto_(RunningElog::kName));
  }
  EXPECT_EQ("works", submit(*orphan, "works"));
  EXPECT_THAT(elog.handler->messages(), testing::Contains("one way"));
}

TEST(BusService, ThousandCallsFromFourThreadsOnTheirOwnChannels) {
  BusServer bus;
  TDX_Service service = serviceOn(bus);
  RunningElog elog(service);
  elog.client();
  std::vector<std::thread> callers;
  std::atomic<int> right{0};
  for (int caller = 0; caller < 4; ++caller)
    callers.emplace_back([&, caller] {
      NV_TDX::ELogClient client(serviceOn(bus).proto_(RunningElog::kName));
      for (int i = 0; i < 250; ++i) {
        const std::string message = std::to_string(caller) + "/" + std::to_string(i);
        if (submit(client, message) == message) ++right;
      }
    });
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(1000, right);
  EXPECT_GT(elog.handler->threads(), 1U);
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

TEST(BusService, SurvivesForeignBrokenAndOversizedMessages) {
  BusServer bus;
  TDX_Service service = serviceOn(bus);
  RunningElog elog(service);
  auto client = elog.client();
  Party party(bus);
  const Message::Header address = headerOf(RunningElog::kName);
  Message::Header unmarked = address;
  unmarked.ctxType = unmarked.evtType = unmarked.procLvl = 1;
  testing::internal::CaptureStderr();
  party.send(unmarked, "ReplyTo: 1.2.3.4 5", {"x"});
  party.send(address, "ReplyTo: 1.2.3.4", {"x"});
  party.send(address, "AnswerTo: 1.2.3.4 5", {"x"});
  party.send(address, "ReplyTo: " + std::string(4000, '9') + " 5", {"x"});
  party.send(address, "ReplyTo: 1.2.3.4 5", {});
  party.send(
      address, "ReplyTo: 1.2.3.4 5",
      {std::string("\x80\x01\x00\x01\x00\x00\x00\x0csubmitAction", 20) + std::string(5, '\x0f')});
  // One marked class is enough; the reply has the stated form.
  Message::Header half = address;
  half.evtType = half.procLvl = 1;
  const Message::Header own = headerOf("");
  ASSERT_TRUE(party.messenger.subscribe(own, nullptr, true));
  const std::string call =
      std::string("\x80\x01\x00\x01\x00\x00\x00\x04nope", 12) + std::string(5, '\0');
  party.send(half, "ReplyTo: " + own.devID.IP + " " + std::to_string(own.devID.id), {call});
  Message reply;
  ASSERT_TRUE(party.messenger.recv(&reply, nullptr));
  EXPECT_EQ("alive", submit(*client, "alive"));
  const std::string log = testing::internal::GetCapturedStderr();
  std::size_t foreign = 0;
  for (std::size_t at = 0; (at = log.find("Foreign message", at)) != std::string::npos; ++at)
    ++foreign;
  EXPECT_EQ(4U, foreign) << log;
  EXPECT_THAT(log, HasSubstr("TDX_Service_Impl "));
  EXPECT_EQ("response0", reply.body_);
  EXPECT_EQ(0x4000U, reply.header_.evtType);
  EXPECT_EQ(-1, reply.sid_);
  ASSERT_EQ(1U, reply.mAttachments.size());
  EXPECT_EQ("response0", reply.getAttachment(0).first);
  EXPECT_THAT(reply.getAttachment(0).second, HasSubstr("Invalid method name: 'nope'"));
  EXPECT_THROW(reply.getAttachment(1), std::out_of_range);
}

TEST(BusService, RequestFormAndUserId) {
  BusServer bus;
  Party party(bus);
  ASSERT_TRUE(party.messenger.subscribe(headerOf("raw"), nullptr, true));
  TDX_MBUS_Transport_Impl transport("raw", bus.address(), static_cast<std::uint16_t>(bus.port()),
                                    "", "");
  transport.open();
  transport.open();
  transport.on_buffer_ready("payload");
  Message request;
  ASSERT_TRUE(party.messenger.recv(&request, nullptr));
  EXPECT_THAT(request.body_, testing::MatchesRegex("ReplyTo: [0-9.]+ -?[0-9]+"));
  EXPECT_EQ("payload", request.getAttachment(0).second);
  EXPECT_EQ("response0", request.getAttachment(0).first);

  // Two requests for the same worker, each seen with its own user.
  TDX_Service service = serviceOn(bus);
  RunningElog elog(service, 1);
  elog.client();
  const auto buffer = std::make_shared<apache::thrift::transport::TMemoryBuffer>();
  NV_TDX::ELogClient(std::make_shared<apache::thrift::protocol::TBinaryProtocol>(buffer))
      .send_submitAction(action("who"));
  const Message::Header own = headerOf("");
  ASSERT_TRUE(party.messenger.subscribe(own, nullptr, true));
  for (const std::uint32_t user : {4242U, 7U}) {
    Message identified(headerOf(RunningElog::kName),
                       "ReplyTo: " + own.devID.IP + " " + std::to_string(own.devID.id));
    identified.addAttachment("", buffer->getBufferAsString());
    identified.userid_ = user;
    party.messenger.send(identified, nullptr);
    Message reply;
    ASSERT_TRUE(party.messenger.recv(&reply, nullptr));
    EXPECT_THAT(reply.getAttachment(0).second, HasSubstr("user " + std::to_string(user)));
  }
  EXPECT_EQ(0U, service.getUserId());
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
