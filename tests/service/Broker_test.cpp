// lib/cms and the broker transports against a real broker, its own Java client,
// and peers that are no broker.
#include <cms/ConnectionFactory.h>
#include <gmock/gmock.h>
#include <thrift/transport/TTransportException.h>

#include "ElogHandler.h"
#include "Servers.h"
#include "TDX_CMS_Transport_Impl.h"
#include "support/TcpPeer.h"

namespace {

using testing::HasSubstr;
using testsupport::BrokerServer;
using testsupport::failureOf;
using testsupport::kBrokerPassword;
using testsupport::kBrokerUser;
using testsupport::RunningElog;
using testsupport::submit;

TDX_Service serviceOn(const BrokerServer& broker, const std::string& password = kBrokerPassword) {
  return {"127.0.0.1", broker.port(), kBrokerUser, password, TDX_Service::Transport_CMS};
}

std::unique_ptr<cms::Connection> connect(const std::string& uri) {
  const std::unique_ptr<cms::ConnectionFactory> factory(
      cms::ConnectionFactory::createCMSConnectionFactory(uri));
  std::unique_ptr<cms::Connection> connection(
      factory->createConnection(kBrokerUser, kBrokerPassword));
  connection->start();
  return connection;
}

}  // namespace

TEST(Broker, CallsAndTheJavaClientOnBothSides) {
  BrokerServer broker;
  {
    TDX_Service service = serviceOn(broker);
    RunningElog elog(service);
    testsupport::expectCalls(
        elog, [&] { return serviceOn(broker); }, 3, 50);

    // A text message is no call: reported, and the next one is served.
    testing::internal::CaptureStderr();
    const auto text = javaClient(broker, "text", RunningElog::kName, "hello");
    EXPECT_EQ(0, text->wait()) << text->output();
    const auto java =
        javaClient(broker, "call", RunningElog::kName, "80010001000000046e6f70650000000000");
    EXPECT_EQ(0, java->wait()) << java->output();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Foreign message"));
    EXPECT_THAT(java->output(), HasSubstr(testsupport::toHex("Invalid method name: 'nope'")));
    EXPECT_THAT(java->output(), HasSubstr("correlation=call-\u00e9-7."));
    EXPECT_THAT(java->output(), HasSubstr("persistent=false"));
  }
  // What was taken is acknowledged, or the next service would be called with it once more.
  const auto connection = connect(broker.uri());
  const std::unique_ptr<cms::Session> session(connection->createSession());
  const std::unique_ptr<cms::Queue> calls(session->createQueue(RunningElog::kName));
  const std::unique_ptr<cms::MessageConsumer> consumer(session->createConsumer(calls.get()));
  EXPECT_EQ(nullptr, std::unique_ptr<cms::Message>(consumer->receive(300)));

  // A reply without success and exception, made by the other side.
  const std::string method = "0000000c" + testsupport::toHex("submitAction");
  const auto java =
      javaClient(broker, "serve", "java.elog", "80010002" + method + std::string(10, '0'));
  ASSERT_TRUE(java->awaitOutput("ready")) << java->output();
  NV_TDX::ELogClient client(serviceOn(broker).proto_("java.elog"));
  EXPECT_THAT(failureOf([&] { submit(client, "hello"); }), HasSubstr("unknown result"));
  EXPECT_EQ(0, java->wait()) << java->output();
  EXPECT_THAT(java->output(), HasSubstr("body=80010001" + method));
  EXPECT_THAT(java->output(), HasSubstr("replyTo=queue://CPP_"));
  EXPECT_THAT(java->output(), HasSubstr("correlation=."));
  EXPECT_THAT(java->output(), HasSubstr("persistent=false"));
}

TEST(Broker, WrongLoginThenADeathAndAReturn) {
  BrokerServer broker;
  EXPECT_THAT(failureOf([&] { serviceOn(broker, "guess").proto_("x"); }),
              HasSubstr("SecurityException"));

  TDX_Service service = serviceOn(broker);
  RunningElog elog(service);
  auto client = elog.client();
  const auto connection = connect("failover:(" + broker.uri() + ")?timeout=200");
  const std::unique_ptr<cms::Session> session(connection->createSession());
  const std::unique_ptr<cms::Topic> topic(session->createTopic("news"));
  const std::unique_ptr<cms::MessageProducer> producer(session->createProducer(topic.get()));
  const std::unique_ptr<cms::MessageConsumer> consumer(session->createConsumer(topic.get()));
  const std::string text = "pos\u00e9 \U0001F4F7 " + std::string(1, '\0') + "end";
  const std::unique_ptr<cms::TextMessage> message(session->createTextMessage(text));
  const auto hears = [&] {
    const std::unique_ptr<cms::Message> heard(consumer->receive(5000));
    const auto* heardText = dynamic_cast<const cms::TextMessage*>(heard.get());
    return heardText != nullptr ? heardText->getText() : "nothing";
  };
  producer->send(message.get());
  EXPECT_EQ(text, hears());

  broker.stop();
  EXPECT_THAT(failureOf([&] {
                for (int i = 0; i < 3; ++i) producer->send(message.get());
              }),
              HasSubstr("no link to the broker"));
  broker.restart();
  EXPECT_TRUE(testsupport::eventually(
      [&] { return failureOf([&] { producer->send(message.get()); }) == "no failure"; }));
  EXPECT_EQ(text, hears()) << "the consumer was announced to the new broker";
  EXPECT_TRUE(elog.reached(*client, "came back"));
  EXPECT_EQ("again", submit(*client, "again"));
}

TEST(BrokerLink, Addresses) {
  const struct {
    const char* uri;
    const char* failure;
  } addresses[] = {
      {"ssl://h:1", "only tcp:// is supported"},
      {"tcp://h", "host:port expected"},
      {"tcp://h:65536", "no port number: 65536"},
      {"failover:(tcp://h:1", "no closing parenthesis"},
      {"failover:(tcp://h:1,)", "only tcp:// is supported"},
      {"tcp://h:1?soTimeout=soon", "soTimeout is no number of milliseconds: soon"},
      {"tcp://h?password=x", "\"tcp://h\": host:port expected: tcp://h"},
      {"tcp://h:1?password=50%", "\"tcp://h:1\": password: % without two digits"},
  };
  for (const auto& address : addresses)
    EXPECT_THAT(failureOf([&] { connect(address.uri); }), HasSubstr(address.failure))
        << address.uri;

  const std::string closed = "tcp://127.0.0.1:" + std::to_string(testsupport::freeTcpPort());
  EXPECT_THAT(failureOf([&] { connect(closed); }), HasSubstr("Connection refused"));
  EXPECT_THAT(failureOf([&] { connect("failover:(" + closed + "?soTimeout=300)"); }),
              HasSubstr("Connection refused"));
}

TEST(BrokerLink, HostilePeers) {
  const auto frame = [](const std::string& body) {
    return testsupport::bytes({0, 0, 0, static_cast<int>(body.size())}) + body;
  };
  const auto format = [&frame](int version, const std::string& options) {
    return frame(
        "\x01"
        "ActiveMQ" +
        testsupport::bytes({0, 0, 0, version, 1, 0, 0, 0}) + static_cast<char>(options.size()) +
        options);
  };
  const std::string good = format(12, std::string(4, '\0'));
  // The answer to the login, which is command 1.
  const std::string in = good + frame(testsupport::hex("1e 00000009 00 00000001"));
  const struct {
    const char* name;
    std::string sent, failure;
    bool closes;
  } peers[] = {
      {"mute", "", "the broker does not answer", false},
      {"gone at once", "", "the broker closed the connection", true},
      {"a web server", "HTTP/1.1 400 Bad\r\n\r\n", "a frame of 1213486160 bytes", false},
      {"empty frame", std::string(4, '\0'), "a frame of 0 bytes", false},
      {"promises 100 MB", testsupport::hex("06400000") + "x", "does not answer", false},
      {"truncated", good.substr(0, 20), "closed the connection", true},
      {"wrong magic",
       frame("\x01"
             "PassiveMQ"),
       "no ActiveMQ broker", false},
      {"old", format(3, ""), "speaks version 3 of OpenWire", false},
      {"four billion options", format(12, testsupport::hex("ffffffff 0001 61 01 01")),
       "ends too early", false},
      {"mute to the login", good, "does not answer", false},
      {"refusal cut short", good + frame(testsupport::hex("1f 00000009 00 00000001 01 01 ffff")),
       "ends too early", false},
      {"refusal without a text", good + frame(testsupport::hex("1f 00000009 00 00000001 00")),
       "unknown error", false},
      {"mute behind the login", in, "does not answer", false},
      {"message of nobody knows what", in + frame(testsupport::hex("15 00000009 00 01 4d")),
       "unknown object 77", false},
      {"endless nesting", in + frame(testsupport::hex("15 00000009 00 01 6e 00 01 6e 00 01 6e")),
       "misplaced object 110", false},
      {"leaves", in + frame(testsupport::hex("0b 00000009 00")), "shutting down", false},
  };
  for (const auto& each : peers) {
    testsupport::TcpPeer peer;
    std::thread playing([&] {
      auto connection = peer.accept();
      // Nothing stays unread, or a close would be a reset.
      connection.readUntil("MaxInactivityDurationInitalDelay");
      connection.read(9);
      connection.write(each.sent);
      if (!each.closes) connection.awaitClose();
    });
    const std::string uri = "tcp://127.0.0.1:" + std::to_string(peer.port()) + "?soTimeout=500";
    EXPECT_THAT(failureOf([&] {
                  const std::unique_ptr<cms::Session> session(connect(uri)->createSession());
                }),
                HasSubstr(each.failure))
        << each.name;
    playing.join();
  }
}
