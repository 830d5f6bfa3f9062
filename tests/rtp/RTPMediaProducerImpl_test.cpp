#include "RTPMediaProducerImpl.h"

#include <sys/socket.h>

#include "Senders.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::RTPMediaProducerImpl;

namespace {

TestHost::Keys keysFor(const std::string& format, int port = freeUdpPort()) {
  return {{"PROTO", "RTP"}, {"MEDIA_FORMAT", format}, {"RTP_UNICAST_PORT", std::to_string(port)}};
}

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
    const auto keys = keysFor(c.format);
    // Joined in mid-stream, as every receiver without signalling is.
    const auto sender =
        ffmpegSender(c.encoder, false, "-f rtp rtp://127.0.0.1:" + keys.at("RTP_UNICAST_PORT"));
    Reception reception(keys);
    EXPECT_TRUE(reception.host.video()->awaitFrames(12)) << sender->output();
    EXPECT_TRUE(eventually([&] { return anyFrameHolds(reception.host, hex(c.holds)); }));
    EXPECT_TRUE(reception.host.video()->codecs().empty());
  }
}

TEST(RTPMediaProducerImpl, PayloadTypeAndModelDecide) {
  const struct {
    const char* model;
    std::string header;
    const char* delivered;
  } cases[] = {
      {"Radiant", "\1\2\3\4", "\1\2\3\4mpeg"},  // the payload as it stands
      {"other", hex("00 00 38 00"), "mpeg"},    // a slice that begins and ends here
  };
  for (const auto& c : cases) {
    auto keys = keysFor("mpeg2", freeUdpPort() + 1 + 65536);  // odd, which is only warned of
    keys["CAMERAMODEL"] = c.model;
    Reception reception(keys);
    const auto before = time(nullptr);
    reception.send("no RTP");
    reception.send("");
    reception.send(rtp(1, "another payload type"));
    reception.send(rtp(2, c.header + "mpeg", 32));
    ASSERT_TRUE(reception.host.video()->awaitFrames(1));
    const SinkFrame frame = reception.host.video()->frames()[0];
    EXPECT_EQ(frame.data, c.delivered) << c.model;
    EXPECT_GE(frame.tv.tv_sec, before) << "the wall clock";
    EXPECT_LE(frame.tv.tv_sec, time(nullptr));
  }
}

// Two strays alone would make the library hold back tens of thousands of packets.
TEST(RTPMediaProducerImpl, StraysAreDroppedAndASenderThatBeginsAnewIsFollowed) {
  Reception reception(keysFor("h264"));
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
      {7, kRestarted, "l"},     {8, kRestarted, "m"},     {10, kRestarted, "n"},
  };
  for (const auto& packet : packets) {
    reception.send(rtp(packet.sequence, packet.payload, 96, packet.source));
  }
  // What waits for a lost packet is looked at when the next one comes.
  int next = 11;
  EXPECT_TRUE(eventually([&] {
    reception.send(rtp(next++, "", 96, kRestarted));
    return reception.host.video()->data().size() >= 14;
  }));
  std::string order;
  for (const std::string& data : reception.host.video()->data()) order += data;
  EXPECT_EQ(order, "abcdefghijklmn");
}

TEST(RTPMediaProducerImpl, LengthsWithinAnAggregateEndWithIt) {
  Reception reception(keysFor("h264"));
  reception.send(rtp(1, hex("18 00 02") + "ab" + hex("00")));  // half a length behind the unit
  reception.send(rtp(2, hex("18 00 05") + "cde"));
  reception.send(rtp(3, "ef"));
  EXPECT_TRUE(reception.host.video()->awaitFrames(3));
  EXPECT_THAT(reception.host.video()->data(), testing::ElementsAre("ab", "cde", "ef"));
}

TEST(RTPMediaProducerImpl, BadConfigurationIsReported) {
  const auto start = [](const TestHost::Keys& keys) {
    TestHost host(keys);
    RTPMediaProducerImpl producer(host.audio(), host.video());
    producer.start();
  };
  for (const char* port : {"0", "65536", "", "none"}) {
    auto keys = keysFor("h264");
    keys["RTP_UNICAST_PORT"] = port;
    EXPECT_FATAL_REPORT(start(keys), "Unknown RTP_UNICAST_PORT or not properly defined",
                        "STREAM_LOST UNK");
  }
  EXPECT_FATAL_REPORT(start({{"PROTO", "RTP"}}), "Unknown RTP_UNICAST_PORT", "STREAM_LOST UNK");
  EXPECT_FATAL_REPORT(start(keysFor("vp8")), "CRT-5013 vp8 is not currently supported",
                      "STREAM_LOST UNK");
}

// Silence would be all that shows when two cameras share a port.
TEST(RTPMediaProducerImpl, APortThatIsTakenIsReported) {
  const HeldPort other(SOCK_DGRAM);
  const int willing = 1;  // to share
  setsockopt(other.fd.get(), SOL_SOCKET, SO_REUSEADDR, &willing, sizeof willing);
  TestHost host(keysFor("h264", other.port));
  EXPECT_FATAL_REPORT(RTPMediaProducerImpl(host.audio(), host.video()).start(),
                      "Can't bind port " + std::to_string(other.port), "STREAM_LOST UNK");
}

TEST(RTPMediaProducerImpl, TheEndOfPlayClosesTheSocketAndTheLoopRunsOn) {
  struct Producer : RTPMediaProducerImpl {
    using RTPMediaProducerImpl::RTPMediaProducerImpl;
    using RTPMediaProducerImpl::sessionAfterPlaying;
  };
  const int port = freeUdpPort();
  TestHost host(keysFor("h264", port));
  Producer producer(host.audio(), host.video());
  // On the event loop's thread, as live555 would.
  host.env().taskScheduler().scheduleDelayedTask(50000, Producer::sessionAfterPlaying, &producer);
  host.run(producer);
  ASSERT_TRUE(awaitPort("udp", port));
  EXPECT_TRUE(eventually([&] { return !portServed("udp", port); }));
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
}
