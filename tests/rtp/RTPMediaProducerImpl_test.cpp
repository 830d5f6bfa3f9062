#include "RTPMediaProducerImpl.h"

#include "Senders.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::RTPMediaProducerImpl;

namespace {

TestHost::Keys keysFor(const std::string& format, const std::string& port) {
  return {{"PROTO", "RTP"}, {"MEDIA_FORMAT", format}, {"RTP_UNICAST_PORT", port}};
}

class Producer : public RTPMediaProducerImpl {
 public:
  using RTPMediaProducerImpl::rtpGroupsock_;
  using RTPMediaProducerImpl::RTPMediaProducerImpl;
  using RTPMediaProducerImpl::sessionAfterPlaying;
  using RTPMediaProducerImpl::source_;
};

bool anyFrameHolds(TestHost& host, const std::string& bytes) {
  for (const SinkFrame& frame : host.video()->frames()) {
    if (frame.data.find(bytes) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

TEST(RTPMediaProducerImpl, ReceivesWhatARealSenderSends) {
  const struct {
    const char* format;
    const char* encoder;
    const char* holds;  // by some frame, sooner or later
  } cases[] = {
      {"h264", "-c:v libx264 -preset ultrafast -tune zerolatency", "65 88"},  // an IDR unit
      {"mpeg4", "-c:v mpeg4 -q:v 10", "00 00 01 B6"},
      {"mpeg2", "-c:v mpeg2video -q:v 10", "00 00 01 B3"},
      {"mjpg", "-c:v mjpeg -pix_fmt yuvj420p -huffman default -q:v 10", "FF D8 FF"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    const std::string port = std::to_string(freeUdpPort());
    // Joined in mid-stream, as every receiver without signalling is.
    const auto sender = ffmpegSender(c.encoder, false, "-f rtp rtp://127.0.0.1:" + port);
    TestHost host(keysFor(c.format, port));
    RTPMediaProducerImpl producer(host.audio(), host.video());
    host.run(producer);
    EXPECT_TRUE(host.video()->awaitFrames(12)) << sender->output();
    EXPECT_TRUE(eventually([&] { return anyFrameHolds(host, hex(c.holds)); }));
    EXPECT_TRUE(host.video()->codecs().empty());
    host.stop();
    EXPECT_TRUE(host.awaitEnd());
    EXPECT_TRUE(host.result());
  }
}

TEST(RTPMediaProducerImpl, PayloadTypeAndModelDecide) {
  const struct {
    const char* model;
    const char* delivered;
  } cases[] = {
      {"Radiant", "\1\2\3\4mpeg"},  // the payload as it stands
      {"other", "mpeg"},            // without the header of MPEG video
  };
  for (const auto& c : cases) {
    const int port = freeUdpPort();
    auto keys = keysFor("mpeg2", std::to_string(port));
    keys["CAMERAMODEL"] = c.model;
    TestHost host(keys);
    RTPMediaProducerImpl producer(host.audio(), host.video());
    host.run(producer);
    ASSERT_TRUE(awaitUdpPort(port));
    UdpSender device(port);
    device.send("no RTP");
    device.send("");
    device.send(rtp(1, "another payload type"));
    // A slice that begins and ends here.
    const std::string header = std::string(c.model) == "other" ? hex("00 00 38 00") : "\1\2\3\4";
    device.send(rtp(2, header + "mpeg", 32));
    EXPECT_TRUE(host.video()->awaitFrames(1));
    EXPECT_EQ(host.video()->frames()[0].data, c.delivered) << c.model;
    host.stop();
    EXPECT_TRUE(host.awaitEnd());
  }
}

TEST(RTPMediaProducerImpl, ReorderedPacketsAreDeliveredInOrderWithTheWallClock) {
  const int port = freeUdpPort() + 1;  // odd, which is only warned of
  auto keys = keysFor("mpeg2", std::to_string(port + 65536));
  keys["CAMERAMODEL"] = "Radiant";
  TestHost host(keys);
  RTPMediaProducerImpl producer(host.audio(), host.video());
  timeval before{};
  gettimeofday(&before, nullptr);
  host.run(producer);
  ASSERT_TRUE(awaitUdpPort(port));
  UdpSender device(port);
  for (const int sequence : {1, 3, 2, 4}) device.send(rtp(sequence, std::to_string(sequence), 32));
  ASSERT_TRUE(host.video()->awaitFrames(4));
  std::string order;
  for (const SinkFrame& frame : host.video()->frames()) {
    order += frame.data;
    EXPECT_GE(frame.tv.tv_sec, before.tv_sec);
    EXPECT_LE(frame.tv.tv_sec, time(nullptr));
  }
  EXPECT_EQ(order, "1234");
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
}

// Two strays alone would make the library hold back tens of thousands of packets.
TEST(RTPMediaProducerImpl, StraysAreDroppedAndASenderThatBeginsAnewIsFollowed) {
  const int port = freeUdpPort();
  TestHost host(keysFor("h264", std::to_string(port)));
  RTPMediaProducerImpl producer(host.audio(), host.video());
  host.run(producer);
  ASSERT_TRUE(awaitUdpPort(port));
  UdpSender device(port);
  constexpr int kStream = 1, kStray = 2, kRestarted = 3;
  const struct {
    int sequence, source;
    const char* payload;
  } packets[] = {
      {65534, kStream, "a"},    {65535, kStream, "b"},    {30000, kStray, "x"},
      {1, kStream, "d"},        {60000, kStray, "x"},     {0, kStream, "c"},
      {2, kStream, "e"},        {3, kStray, "f"},  // another source that goes on
      {500, kStream, "x"},      {4, kStray, "g"},         {900, kStray, "h"},  // after a loss
      {20000, kRestarted, "i"}, {20001, kRestarted, "j"}, {20002, kRestarted, "k"},
  };
  for (const auto& packet : packets) {
    device.send(rtp(packet.sequence, packet.payload, 96, packet.source));
  }
  // What waits for a lost packet is looked at when the next one comes.
  int next = 20003;
  EXPECT_TRUE(eventually([&] {
    device.send(rtp(next++, "", 96, kRestarted));
    return host.video()->data().size() >= 11;
  }));
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
  std::string order;
  for (const std::string& data : host.video()->data()) order += data;
  EXPECT_EQ(order, "abcdefghijk");
}

TEST(RTPMediaProducerImpl, LengthsWithinAnAggregateEndWithIt) {
  const int port = freeUdpPort();
  TestHost host(keysFor("h264", std::to_string(port)));
  RTPMediaProducerImpl producer(host.audio(), host.video());
  host.run(producer);
  ASSERT_TRUE(awaitUdpPort(port));
  UdpSender device(port);
  device.send(rtp(1, hex("18 00 02") + "ab" + hex("00")));  // half a length behind the unit
  device.send(rtp(2, hex("18 00 05") + "cde"));
  device.send(rtp(3, "ef"));
  EXPECT_TRUE(host.video()->awaitFrames(3));
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
  EXPECT_THAT(host.video()->data(), testing::ElementsAre("ab", "cde", "ef"));
}

TEST(RTPMediaProducerImpl, BadConfigurationIsReported) {
  const auto start = [](const TestHost::Keys& keys) {
    TestHost host(keys);
    RTPMediaProducerImpl producer(host.audio(), host.video());
    producer.start();
  };
  for (const char* port : {"0", "65536", "", "none"}) {
    EXPECT_FATAL_REPORT(start(keysFor("h264", port)),
                        "Unknown RTP_UNICAST_PORT or not properly defined", "STREAM_LOST UNK");
  }
  EXPECT_FATAL_REPORT(start({{"PROTO", "RTP"}}), "Unknown RTP_UNICAST_PORT", "STREAM_LOST UNK");
  const std::string port = std::to_string(freeUdpPort());
  EXPECT_FATAL_REPORT(start(keysFor("vp8", port)), "CRT-5013 vp8 is not currently supported",
                      "STREAM_LOST UNK");
}

// Silence would be all that shows when two cameras share a port.
TEST(RTPMediaProducerImpl, APortThatIsTakenIsReported) {
  const int port = freeUdpPort();
  const auto keys = keysFor("h264", std::to_string(port));
  TestHost host(keys);
  RTPMediaProducerImpl first(host.audio(), host.video());
  host.run(first);
  ASSERT_TRUE(awaitUdpPort(port));
  RTPMediaProducerImpl second(host.audio(), host.video());
  EXPECT_FATAL_REPORT(second.start(), "Can't bind port " + std::to_string(port), "STREAM_LOST UNK");
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
}

TEST(RTPMediaProducerImpl, TheEndOfPlayClosesTheSinkAndTheLoopRunsOn) {
  const int port = freeUdpPort();
  TestHost host(keysFor("h264", std::to_string(port)));
  Producer producer(host.audio(), host.video());
  // On the event loop's thread, as live555 would.
  struct End {
    TestHost& host;
    Producer& producer;
    static void now(void* data) {
      auto* end = static_cast<End*>(data);
      Producer::sessionAfterPlaying(&end->producer);
      end->host.forgetVideo();
    }
  } end{host, producer};
  host.env().taskScheduler().scheduleDelayedTask(50000, End::now, &end);
  host.run(producer);
  // The port is free again while start() has not returned.
  ASSERT_TRUE(awaitUdpPort(port));
  EXPECT_TRUE(eventually([&] { return !udpPortBound(port); }));
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
  EXPECT_EQ(producer.source_, nullptr);
  EXPECT_EQ(producer.rtpGroupsock_, nullptr);
}
