#include "CornetMediaProducerImpl.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

#include "NETMediaProducer.h"
#include "Senders.h"
#include "TsBuilder.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::CornetMediaProducerImpl;
using Kelvane::NETMediaProducerImpl;

namespace {

constexpr char kUasKey[] = "06 0E 2B 34 02 0B 01 01 0E 01 03 01 01 00 00 00";
constexpr int kPmt = 256, kVideo = 257, kAudio = 258, kData = 259;

TestHost::Keys keysFor(const std::string& proto, int port, const std::string& format = "h264") {
  return {{"PROTO", proto},
          {"CAMERAMODEL", "Cornet"},
          {"MODELID", "Unicast"},
          {"MEDIA_FORMAT", format},
          {"RTP_UNICAST_PORT", std::to_string(port)}};
}

TestHost::Keys keysForGroup(const std::string& group, int port) {
  auto keys = keysFor("UDP", port);
  keys["MODELID"] = "Multicast";
  keys["MULTICAST_IP"] = group;
  keys["RTP_MULTICAST_PORT"] = std::to_string(port);
  return keys;
}

// Made by the selection, so that the library is opened on demand.
std::unique_ptr<NETMediaProducerImpl> select(TestHost& host) {
  return std::unique_ptr<NETMediaProducerImpl>(
      Kelvane::getMediaProducerImplementation(host.audio(), host.video(), host.metadata()));
}

// A running producer that gets hand-made datagrams.
class Conversation {
 public:
  explicit Conversation(const TestHost::Keys& keys)
      : port_(std::stoi(keys.at("RTP_UNICAST_PORT"))),
        host(keys),
        producer_(host.audio(), host.video(), host.metadata(), false) {
    host.run(producer_);
    EXPECT_TRUE(awaitUdpPort(port_));
    device_ = std::make_unique<UdpSender>(port_);
    announce({{TsBuilder::kH264, kVideo}, {TsBuilder::kAac, kAudio}, {TsBuilder::kPrivate, kData}});
  }
  ~Conversation() {
    host.stop();
    EXPECT_TRUE(host.awaitEnd());
  }
  void announce(const std::vector<TsBuilder::Stream>& streams) {
    device_->send(ts.pat(kPmt) + ts.pmt(kPmt, streams));
  }
  void send(const std::string& datagram) { device_->send(datagram); }
  void pes(int pid, const std::string& payload) { send(ts.pes(pid, payload)); }

 private:
  const int port_;

 public:
  TestHost host;
  TsBuilder ts;

 private:
  CornetMediaProducerImpl producer_;
  std::unique_ptr<UdpSender> device_;
};

// Whether a group can be joined here at all: that takes a route to it.
bool multicastWorks() {
  const Kelvane::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const ip_mreq request{{htonl(0xEFFF0001)}, {INADDR_ANY}};
  return setsockopt(fd.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
}

}  // namespace

TEST(CornetMediaProducerImpl, TakesARealStreamApartWheneverItBegins) {
  const struct {
    const char *proto, *format, *coding, *config, *videoStart;
  } cases[] = {
      {"UDP", "h264", "-c:v libx264 -preset ultrafast -tune zerolatency -c:a aac -ac 1", "12 08",
       "00 00 00 01"},
      // MPEG audio shares the syncword, so it passes for AAC with an odd configuration.
      {"RTP", "mpeg2", "-c:v mpeg2video -q:v 10 -c:a mp2 -b:a 128k -ac 1", "", "00 00 01 B3"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    const int port = freeUdpPort();
    const std::string to = "127.0.0.1:" + std::to_string(port);
    const bool senderFirst = std::string(c.proto) == "UDP";
    const std::string output =
        senderFirst ? "-f mpegts udp://" + to + "?pkt_size=1316" : "-f rtp_mpegts rtp://" + to;
    std::unique_ptr<Subprocess> sender;
    if (senderFirst) sender = ffmpegSender(c.coding, true, output);
    TestHost host(keysFor(c.proto, port, c.format));
    const auto producer = select(host);
    host.run(*producer);
    ASSERT_TRUE(awaitUdpPort(port));
    if (!senderFirst) sender = ffmpegSender(c.coding, true, output);
    EXPECT_TRUE(host.video()->awaitFrames(12)) << sender->output();
    EXPECT_TRUE(host.audio()->awaitFrames(5));
    if (!senderFirst) {  // nothing ahead of a key frame
      EXPECT_EQ(host.video()->data()[0].substr(0, 4), hex(c.videoStart));
    }
    for (const std::string& frame : host.video()->data()) {
      EXPECT_EQ(frame.substr(0, 3), hex(c.videoStart).substr(0, 3));
    }
    EXPECT_THAT(host.audio()->codecs(), testing::ElementsAre("MPEG4-GENERIC"));
    ASSERT_EQ(host.audio()->configs()[0].size(), 2U);
    if (senderFirst) {
      EXPECT_EQ(host.audio()->configs()[0], hex(c.config));
    }
    host.stop();
    EXPECT_TRUE(host.awaitEnd());
    EXPECT_TRUE(host.result());
  }
}

TEST(CornetMediaProducerImpl, FirstBytesDecideWhoGetsAFrame) {
  Conversation talk(keysFor("UDP", freeUdpPort()));
  const std::string klv = hex(kUasKey) + "position";
  const std::string adts = hex("FF F1 50 40 00 1F FC");
  talk.pes(kAudio, "no syncword");  // of the audio stream
  talk.pes(kData, klv);
  talk.pes(kData, hex("00 00 01") + "looks like video");
  talk.pes(kAudio, adts + "first");
  talk.pes(kData, adts);  // an audio frame of nothing
  talk.pes(kData, adts.substr(0, 6));
  talk.pes(kAudio, adts + "last");
  ASSERT_TRUE(talk.host.audio()->awaitFrames(3));
  EXPECT_THAT(talk.host.audio()->data(), testing::ElementsAre("first", "", "last"));
  EXPECT_THAT(talk.host.audio()->configs(), testing::ElementsAre(hex("12 08")));
  EXPECT_THAT(talk.host.metadata()->data(), testing::ElementsAre("no syncword", klv));
  EXPECT_THAT(talk.host.metadata()->codecs(), testing::ElementsAre(""));
  EXPECT_THAT(talk.host.video()->data(),
              testing::ElementsAre(hex("00 00 01") + "looks like video"));
}

TEST(CornetMediaProducerImpl, DatagramsOfAnySizeAreTaken) {
  for (const char* proto : {"UDP", "RTP"}) {
    SCOPED_TRACE(proto);
    const int port = freeUdpPort();
    TestHost host(keysFor(proto, port));
    CornetMediaProducerImpl producer(host.audio(), host.video(), host.metadata(), false);
    host.run(producer);
    ASSERT_TRUE(awaitUdpPort(port));
    UdpSender device(port);
    TsBuilder ts;
    int sequence = 1;
    const auto send = [&](const std::string& data) {
      device.send(std::string(proto) == "RTP" ? rtp(sequence++, data, 33) : data);
    };
    send(ts.pat(kPmt) + ts.pmt(kPmt, {{TsBuilder::kPrivate, kData}}));
    send("short");
    send(std::string(188 * 7, 'x'));  // no sync byte anywhere
    send(ts.pes(kData, "one") + ts.pes(kData, "cut off").substr(0, 187));
    send(ts.pes(kData, "two") + ts.pes(kData, "three"));
    if (std::string(proto) == "RTP") device.send(rtp(99, ts.pes(kData, "wrong type")));
    std::string large;
    while (large.size() < 8000) large += ts.pes(kData, "large");
    send(large);
    send(ts.pes(kData, "end"));
    ASSERT_TRUE(eventually([&] {
      const auto got = host.metadata()->data();
      return !got.empty() && got.back() == "end";
    }));
    auto got = host.metadata()->data();
    EXPECT_EQ(std::count(got.begin(), got.end(), "large"), 43);
    got.erase(std::remove(got.begin(), got.end(), "large"), got.end());
    EXPECT_THAT(got, testing::ElementsAre("one", "two", "three", "end"));
    host.stop();
    EXPECT_TRUE(host.awaitEnd());
  }
}

TEST(CornetMediaProducerImpl, VideoWaitsForAKeyFrameOnlyInMpeg2AndHoldsNothingElseBack) {
  const std::string picture = hex("00 00 01 00 00 10 FF F8 00 00 01 01") + std::string(50, 'p');
  const std::string key =
      hex("00 00 01 B3 16 01 20 13 FF FF E0 18 00 00 01 00 00 08 FF F8 00 00 01 01") +
      std::string(50, 'i');
  for (const bool waits : {true, false}) {
    Conversation talk(keysFor("UDP", freeUdpPort(), waits ? "mpeg2" : "mpeg4"));
    talk.announce({{TsBuilder::kMpeg2, 400}, {TsBuilder::kPrivate, kData}});
    talk.pes(kData, hex("00 00 01") + "start code outside of video");
    for (int i = 0; i < 3; ++i) talk.pes(400, picture);
    talk.pes(kData, "metadata");
    ASSERT_TRUE(talk.host.metadata()->awaitFrames(1));
    EXPECT_EQ(talk.host.video()->count(), waits ? 0U : 3U);
    for (int i = 0; i < 3; ++i) talk.pes(400, key);
    talk.pes(400, picture);
    ASSERT_TRUE(talk.host.video()->awaitFrames(waits ? 3 : 6));
    if (waits) {
      EXPECT_EQ(talk.host.video()->data()[0], key);
    }
  }
}

TEST(CornetMediaProducerImpl, AReservedAudioProfileEndsTheProcess) {
  const auto receive = [] {
    Conversation talk(keysFor("UDP", freeUdpPort()));
    for (int i = 0; i < 200; ++i) {
      talk.pes(kAudio, hex("FF F1 D0 40 00 1F FC"));
      poll(nullptr, 0, 10);
    }
  };
  EXPECT_FATAL_REPORT(receive(), "Bad (reserved) 'profile': 3 in first frame of ADTS file",
                      "STREAM_LOST UNK");
}

TEST(CornetMediaProducerImpl, ASocketThatCannotBeHadIsReported) {
  const auto start = [](const TestHost::Keys& keys) {
    TestHost host(keys);
    CornetMediaProducerImpl producer(host.audio(), host.video(), host.metadata(), false);
    producer.start();
  };
  const HeldPort other(SOCK_DGRAM);
  const std::string text = "Can't bind port " + std::to_string(other.port);
  EXPECT_FATAL_REPORT(start(keysFor("UDP", other.port)), text, "STREAM_LOST UNK");
  EXPECT_FATAL_REPORT(start(keysForGroup("239.255.0.1", other.port)), text, "STREAM_LOST UNK");
  for (const char* group : {"127.0.0.1", "no address"}) {
    EXPECT_FATAL_REPORT(start(keysForGroup(group, freeUdpPort())),
                        "Can't join multicast group, error code: 22\n", "STREAM_LOST UNK");
  }
}

TEST(CornetMediaProducerImpl, TwoGroupsOnOnePortDoNotMix) {
  if (!multicastWorks()) GTEST_SKIP() << "no route to a multicast group on this machine";
  const int port = freeUdpPort();
  const std::string group = "239.255." + std::to_string(getpid() % 250) + ".1";
  const std::string otherGroup = "239.255." + std::to_string(getpid() % 250) + ".2";
  TestHost host(keysForGroup(group, port));
  CornetMediaProducerImpl producer(host.audio(), host.video(), host.metadata(), false);
  host.run(producer);
  ASSERT_TRUE(awaitUdpPort(port));
  // Another receiver of this machine joins the other group.
  const Kelvane::UniqueFd neighbour(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ip_mreq request{};
  inet_pton(AF_INET, otherGroup.c_str(), &request.imr_multiaddr);
  ASSERT_EQ(setsockopt(neighbour.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request),
            0);

  UdpSender device(port, group);
  UdpSender otherDevice(port, otherGroup);
  TsBuilder ts;
  TsBuilder otherTs;
  const std::vector<TsBuilder::Stream> streams{{TsBuilder::kPrivate, kData}};
  // The group's own join may take a moment.
  ASSERT_TRUE(eventually([&] {
    otherDevice.send(otherTs.pat(kPmt) + otherTs.pmt(kPmt, streams) + otherTs.pes(kData, "other"));
    device.send(ts.pat(kPmt) + ts.pmt(kPmt, streams) + ts.pes(kData, "own"));
    return host.metadata()->count() >= 3;
  }));
  EXPECT_THAT(host.metadata()->data(), testing::Each("own"));
  host.stop();
  EXPECT_TRUE(host.awaitEnd());
}

TEST(CornetMediaProducerImpl, OnlyAListenerTellsThatItWaits) {
  for (const bool waits : {true, false}) {
    auto keys = keysFor("UDP", freeUdpPort());
    if (waits) keys["CAMERAMODEL"] = "ListenerMPEG2-TS";
    TestHost host(keys);
    {
      const auto producer = select(host);
      host.run(*producer);
      if (waits) {
        EXPECT_TRUE(eventually([&] { return host.pidUpdates() >= 1; }));
      } else {
        ASSERT_TRUE(awaitUdpPort(std::stoi(keys["RTP_UNICAST_PORT"])));
      }
      host.stop();
      EXPECT_TRUE(host.awaitEnd());
    }
    EXPECT_EQ(host.pidUpdates() > 0, waits);
  }
}
