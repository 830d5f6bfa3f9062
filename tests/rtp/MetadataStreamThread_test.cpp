#include "MetadataStreamThread.h"

#include <sys/socket.h>

#include "Senders.h"
#include "TsBuilder.h"
#include "support/TestHost.h"

using namespace testsupport;

namespace {

// A producer that has nothing of its own: what comes, comes from METADATA_PORT.
class Idle : public Kelvane::NETMediaProducerImpl {
 public:
  explicit Idle(TestHost& host)
      : NETMediaProducerImpl(host.audio(), host.video(), host.metadata()) {}
  bool start() override {
    runEventLoop();
    return true;
  }
  bool receivesMetadata() const { return metadataStreamThread_ != nullptr; }
};

std::vector<std::string> intakeOf(TestHost& host) {
  std::vector<std::string> all;
  for (const auto& frame : host.intake()) {
    EXPECT_EQ(frame.media, Kelvane::METADATA);
    all.push_back(frame.data);
  }
  return all;
}

}  // namespace

TEST(MetadataStreamThread, WholePacketsReachTheHostBesideTheProducer) {
  const int port = freeUdpPort();
  TestHost host({{"METADATA_PORT", std::to_string(port)}});
  Idle producer(host);
  host.run(producer);
  ASSERT_TRUE(awaitPort("udp", port));
  UdpSender device(port);
  TsBuilder ts;
  device.send(ts.pat(256) + ts.pmt(256, {{TsBuilder::kPrivate, 300}}));
  device.send(ts.pes(300, "lost").substr(0, 187));
  device.send("");
  device.send(std::string(188, 'x'));
  device.send(ts.pes(300, "one") + std::string(12, '\x47'));  // 200 bytes
  device.send(ts.pes(300, "two") + ts.pes(300, "three"));
  ASSERT_TRUE(eventually([&] { return host.intake().size() >= 3; }));
  EXPECT_THAT(intakeOf(host), testing::ElementsAre("one", "two", "three"));
  // One datagram, one time.
  EXPECT_EQ(host.intake()[1].tv.tv_usec, host.intake()[2].tv.tv_usec);
  ASSERT_EQ(host.initialised().size(), 1U);
  EXPECT_EQ(host.initialised()[0].media, Kelvane::METADATA);
  EXPECT_EQ(host.metadata()->count(), 0U);  // it has a sink of its own
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
}

TEST(MetadataStreamThread, NoPortNoThread) {
  TestHost host({{"METADATA_PORT", ""}});
  Idle empty(host);
  EXPECT_TRUE(empty.init());
  EXPECT_FALSE(empty.receivesMetadata());
}

// Whether its thread has come to bind the port yet or not.
TEST(MetadataStreamThread, CanBeDeletedAtOnce) {
  TestHost host;
  for (int i = 0; i < 20; ++i) {
    Kelvane::Cfg::insert("METADATA_PORT", freeUdpPort());  // a socket outlives its thread
    Idle producer(host);
    producer.init();
  }
}

TEST(MetadataStreamThread, APortInUseEndsTheProcess) {
  const HeldPort other(SOCK_DGRAM);
  TestHost host({{"METADATA_PORT", std::to_string(other.port)}});
  Idle producer(host);
  const auto run = [&] {
    producer.init();
    producer.start();
  };
  EXPECT_FATAL_EXIT(run(), "Can't bind port " + std::to_string(other.port) + " for metadata");
}
