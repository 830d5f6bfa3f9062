// The announcer against a real bus and a real broker; positions are read by
// the broker's own Java client.
#include <cms/ConnectionFactory.h>
#include <gmock/gmock.h>

#include "BrokerSession.h"
#include "Cfg.h"
#include "ElogHandler.h"
#include "PushInMediaAnnoncer.h"
#include "Servers.h"
#include "support/TestHost.h"

namespace {

using testing::HasSubstr;
using testsupport::BusServer;

// The port of the installation's bus is fixed: an address of its own.
struct Site {
  BusServer bus{testsupport::ownLoopbackAddress(), 10000};
  testsupport::TestHost host{{"MASTER_NODE", bus.address()}, {"OBJID", "4711"}};
};

// The host's session on the broker.
struct HostSession {
  explicit HostSession(const testsupport::BrokerServer& broker)
      : factory(cms::ConnectionFactory::createCMSConnectionFactory(broker.uri())),
        connection(
            factory->createConnection(testsupport::kBrokerUser, testsupport::kBrokerPassword)),
        session(connection->createSession()) {
    set(session.get());
  }
  ~HostSession() { set(nullptr); }
  HostSession(const HostSession&) = delete;
  HostSession& operator=(const HostSession&) = delete;

  static void set(cms::Session* session) {
    Kelvane::Retriever::instance(nullptr, nullptr, nullptr, nullptr)->setCMSSession(session);
  }

  std::unique_ptr<cms::ConnectionFactory> factory;
  std::unique_ptr<cms::Connection> connection;
  std::unique_ptr<cms::Session> session;
};

void alive(Kelvane::PushInMediaAnnoncer& announcer, time_t seconds, std::string text) {
  announcer.annonceAlive({seconds, 0}, text.data());
}

}  // namespace

// Named so to run ahead of what leaves the bus's threads behind.
TEST(AnnouncerDeathTest, AFirstPositionThatCannotBeSentEndsTheProcess) {
  const Site site;
  const testsupport::BrokerServer broker;
  const auto announce = [&] {
    const std::unique_ptr<Kelvane::PushInMediaAnnoncer> announcer(
        mretriever_createPushInMediaAnnoncer());
    const HostSession session(broker);
    session.connection->close();
    announcer->annonceGPS({100, 7}, 1, 1, 1);
  };
  EXPECT_FATAL_EXIT(announce(), "CMS error: the connection is closed");
}

TEST(Announcer, TellsTheEventLogOnceASecondAndSurvivesItsFailures) {
  const Site site;
  TDX_Service service(site.bus.address(), 10000, "", "", TDX_Service::Transport_MBUS);
  const auto log = std::make_shared<testsupport::ElogHandler>();
  service.add_processor("tdx.eventlog", std::make_shared<NV_TDX::ELogProcessor>(log));
  std::thread serving([&] { service.serve(1, nullptr); });
  NV_TDX::ELogClient probe(service.proto_("tdx.eventlog"));
  ASSERT_TRUE(testsupport::eventually([&] {
    probe.submitActionA(testsupport::action("probe"));
    return log->heard("probe");
  }));
  // Probes are one-way and may still be on their way: not counted.
  const auto told = [&] {
    std::vector<NV_TDX::TParameters> all;
    for (const NV_TDX::Action& each : log->actions()) {
      if (each.parameters.at("msg") != "probe") all.push_back(each.parameters);
    }
    return all;
  };

  const std::unique_ptr<Kelvane::PushInMediaAnnoncer> announcer(
      mretriever_createPushInMediaAnnoncer());
  alive(*announcer, 1700000000, "");
  EXPECT_EQ("create", log->actions().back().name);
  EXPECT_THAT(told(), testing::ElementsAre(NV_TDX::TParameters{{"objid", "4711"},
                                                               {"source", "4"},
                                                               {"when", "1700000000"},
                                                               {"from", "1700000000"},
                                                               {"msg", "iStream device woke up"}}));
  alive(*announcer, 1700000000, "same second");
  alive(*announcer, 1699999999, "the past");
  alive(*announcer, 1700000001, "door open\r\n");

  testing::internal::CaptureStderr();
  alive(*announcer, 1700000002, "refuse");
  alive(*announcer, 1700000002, "not retried");
  alive(*announcer, 1700000003, "break");
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_THAT(errors, HasSubstr("Could not submit action: no room"));
  EXPECT_THAT(errors, HasSubstr("Could not submit action: disk on fire"));
  std::vector<std::string> messages;
  for (const auto& each : told()) messages.push_back(each.at("msg"));
  EXPECT_THAT(messages,
              testing::ElementsAre("iStream device woke up", "door open\r\n", "refuse", "break"));

  service.shutdown();
  serving.join();
  testing::internal::CaptureStderr();
  alive(*announcer, 1700000004, "nobody listens");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Elog Transport error: Server read timed out"));
}

TEST(Announcer, SendsPositionsToTheTopic) {
  const Site site;
  const std::unique_ptr<Kelvane::PushInMediaAnnoncer> announcer(
      mretriever_createPushInMediaAnnoncer());
  testing::internal::CaptureStderr();
  announcer->annonceGPS({100, 0}, 9, 9, 9);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("No AMQ connections found"));

  testsupport::BrokerServer broker;
  const auto reader = javaClient(broker, "listen", "amq.gis.topic", "3");
  ASSERT_TRUE(reader->awaitOutput("ready")) << reader->output();
  const HostSession session(broker);
  announcer->annonceGPS({100, 7}, 0, 0, 0);            // no position
  announcer->annonceGPS({100, 7}, 50.5F, -7.25F, 0);   // reported
  announcer->annonceGPS({100, 900000}, 51, 0, 300);    // kept for later
  announcer->annonceGPS({99, 0}, 0, 8, 0);             // kept, message time ran back
  announcer->annonceGPS({2147483648, 5}, 0, 9.5F, 0);  // filled up with what is known
  session.connection->close();
  testing::internal::CaptureStderr();
  announcer->annonceGPS({2147483649, 0}, 1, 1, 1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("CMS error: the connection is closed"));
  testing::internal::CaptureStderr();
  announcer->annonceGPS({2147483649, 1}, 1, 1, 1);  // time moved on with the lost report
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_TRUE(reader->awaitOutput("alt=\"300")) << reader->output();
  EXPECT_THAT(reader->output(),
              HasSubstr("text: <message type=\"gisTrgtMobile\" objid=\"4711\" lat=\"50.500000\" "
                        "lon=\"-7.250000\" alt=\"0.000000\" pts=\"100000007\" />\n"
                        "text: <message type=\"gisTrgtMobile\" objid=\"4711\" lat=\"51.000000\" "
                        "lon=\"9.500000\" alt=\"300.000000\" pts=\"2147483648000005\" />\n"));
}
