#include "CornetMediaProducerImpl.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

#include "Senders.h"
#include "TsBuilder.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::CornetMediaProducerImpl;

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

// Gets hand-made packets of a transport stream.
class Conversation : public Reception {
 public:
  explicit Conversation(const TestHost::Keys& keys)
      : Reception(keys), overRtp_(keys.at("PROTO") == "RTP") {
    announce({{TsBuilder::kH264, kVideo}, {TsBuilder::kAac, kAudio}, {TsBuilder::kPrivate, kData}});
  }
  void announce(const std::vector<TsBuilder::Stream>& streams) {
    sendTs(ts.pat(kPmt) + ts.pmt(kPmt, streams));
  }
  void sendTs(const std::string& packets) {
    send(overRtp_ ? rtp(sequence_++, packets, 33) : packets);
  }
  void pes(int pid, const std::string& payload) { sendTs(ts.pes(pid, payload)); }

  TsBuilder ts;

 private:
  const bool overRtp_;
  int sequence_ = 1;
};

// Whether a group can be joined here at all: that takes a route to it.
bool multicastWorks() {
  const Kelvane::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const ip_mreq request{{htonl(0xEFFF0001)}, {INADDR_ANY}};
  return setsockopt(fd.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0;
}

}  // namespace

TEST(CornetMediaProducerImpl, TakesARealStreamApartWheneverItBegins) {
  const char h264[] = "-c:v libx264 -preset ultrafast -tune zerolatency -c:a aac -ac 1";
  const char mpeg2[] = "-c:v mpeg2video -q:v 10 -c:a mp2 -b:a 128k -ac 1";
  const char udp[] = "-f mpegts udp://127.0.0.1:", overRtp[] = "-f rtp_mpegts rtp://127.0.0.1:";
  const struct {
    const char *proto, *format, *coding, *output, *config;
    std::string videoStart;
    bool joins;  // a stream that is under way
  } cases[] = {
      {"UDP", "h264", h264, udp, "12 08", hex("00 00 00 01"), false},
      {"RTP", "h264", h264, overRtp, "12 08", hex("00 00 00 01"), true},
      // Nothing ahead of a key frame. MPEG audio shares the syncword, so it
      // passes for AAC with an odd configuration.
      {"RTP", "mpeg2", mpeg2, overRtp, "", hex("00 00 01 B3"), false},
      {"UDP", "mpeg2", mpeg2, udp, "", hex("00 00 01 B3"), true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.proto) + " " + c.format);
    const auto keys = keysFor(c.proto, freeUdpPort(), c.format);
    std::unique_ptr<Subprocess> sender;
    const auto send = [&] {
      sender =
          ffmpegSender(c.coding, true, c.output + keys.at("RTP_UNICAST_PORT") + "?pkt_size=1316");
    };
    if (c.joins) {
      send();
      poll(nullptr, 0, 700);
    }
    Reception reception(keys);
    if (!c.joins) send();
    TestHost& host = reception.host;
    ASSERT_TRUE(host.video()->awaitFrames(12)) << sender->output();
    ASSERT_TRUE(host.audio()->awaitFrames(5));
    EXPECT_THAT(host.video()->data()[0], testing::StartsWith(c.videoStart));
    for (const std::string& frame : host.video()->data()) {
      EXPECT_EQ(frame.substr(0, 3), c.videoStart.substr(0, 3));
    }
    EXPECT_THAT(host.audio()->codecs(), testing::ElementsAre("MPEG4-GENERIC"));
    EXPECT_EQ(host.audio()->configs()[0].size(), 2U);
    EXPECT_THAT(host.audio()->configs()[0], testing::StartsWith(hex(c.config)));
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
    Conversation talk(keysFor(proto, freeUdpPort()));
    talk.sendTs("short");
    talk.sendTs(std::string(188 * 7, 'x'));  // no sync byte anywhere
    talk.sendTs(talk.ts.pes(kData, "one") + talk.ts.pes(kData, "cut off").substr(0, 187));
    talk.sendTs(talk.ts.pes(kData, "two") + talk.ts.pes(kData, "three"));
    if (proto == std::string("RTP")) talk.send(rtp(99, talk.ts.pes(kData, "wrong type")));
    std::string large;
    while (large.size() < 8000) large += talk.ts.pes(kData, "large");
    talk.sendTs(large);
    talk.pes(kData, "end");
    ASSERT_TRUE(talk.host.metadata()->awaitFrames(47));
    auto got = talk.host.metadata()->data();
    EXPECT_EQ(std::count(got.begin(), got.end(), "large"), 43);
    got.erase(std::remove(got.begin(), got.end(), "large"), got.end());
    EXPECT_THAT(got, testing::ElementsAre("one", "two", "three", "end"));
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
  EXPECT_FATAL_REPORT(start(keysFor("UDP", 65536)),
                      "Unknown RTP_UNICAST_PORT or not properly defined", "STREAM_LOST UNK");
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
  Reception reception(keysForGroup(group, port));
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
    return reception.host.metadata()->count() >= 3;
  }));
  EXPECT_THAT(reception.host.metadata()->data(), testing::Each("own"));
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
        ASSERT_TRUE(awaitPort("udp", std::stoi(keys["RTP_UNICAST_PORT"])));
      }
      host.stop();
      EXPECT_TRUE(host.awaitEnd());
    }
    EXPECT_EQ(host.pidUpdates() > 0, waits);
  }
}
