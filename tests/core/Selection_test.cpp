#include <unistd.h>

#include <cstdio>
#include <typeinfo>

#include "NETMediaProducer.h"
#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::Cfg;

namespace {

// Says which class was made and leaves, because some producers start to talk
// to their device as soon as they exist.
[[noreturn]] void selectAndLeave(TestHost& host) {
  Kelvane::NETMediaProducerImpl* producer =
      Kelvane::getMediaProducerImplementation(host.audio(), host.video(), host.metadata());
  fprintf(stderr, "selected %s, PROTO %s\n", typeid(*producer).name(), Cfg::value("PROTO").c_str());
  _exit(0);
}

}  // namespace

TEST(Selection, KeysDecide) {
  const auto keys = [](const char* proto, const char* model, const char* format = "any",
                       const char* snapshots = "off") {
    return TestHost::Keys{{"PROTO", proto},
                          {"CAMERAMODEL", model},
                          {"MODELID", "BL-C210A"},
                          {"MEDIA_FORMAT", format},
                          {"SNAPSHOT_MODE", snapshots}};
  };
  const struct {
    TestHost::Keys keys;
    const char* producer;
  } cases[] = {
      {keys("HTTP", "Pelco", "mpeg4"), "PelcoMedia"},
      {keys("HTTP", "Pelco", "h264", "on"), "PelcoMedia"},
      {keys("HTTP", "Pelco", "mjpg", "on"), "BoschMedia"},
      {keys("HTTP", "Pelco", "mjpg"), "4HTTP|HTTPMedia"},
      {keys("HTTP", "Verint"), "VSIPMedia"},
      {keys("HTTP", "Dante"), "DanteMedia"},
      {keys("HTTP", "Samsung"), "SamsungMedia"},
      {keys("HTTP", "Bosch"), "BoschMedia"},
      {keys("HTTP", "bosch"), "HTTPMedia"},
      {keys("RTSP", "any"), "RTSPMedia"},
      // The camera is served over RTSP while PROTO reads HTTP from then on.
      {keys("RTSP", "panasonic", "audio"), "RTSPMedia.*PROTO HTTP"},
      {keys("RTP", "any"), "3RTP|RTPMedia"},
      {keys("RTP", "Cornet"), "CornetMedia"},
      {keys("UDP", "Cornet"), "CornetMedia"},
      {keys("UDP", "ListenerMPEG2-TS"), "CornetMedia"},
      {keys("TEST", "any"), "TESTMedia"},
      {keys("FAKE", "any"), "FAKEMedia"},
  };
  const TcpPeer device;  // takes connections and says nothing
  for (const auto& c : cases) {
    TestHost host(c.keys);
    Cfg::insert("DEVIP", "127.0.0.1");
    Cfg::insert("HTTP_PORT", device.port());
    for (const char* key :
         {"USRNAME", "PASSWD", "VSIP_TARGET_SIP", "VSIP_SOURCE_GUID", "VSIP_TARGET_GUID"}) {
      Cfg::insert(key, "x");
    }
    EXPECT_EXIT(selectAndLeave(host), testing::ExitedWithCode(0),
                testing::ContainsRegex(std::string("selected .*(") + c.producer + ")"));
  }
}

TEST(Selection, UnknownProtocolsEndTheProcessWithoutAState) {
  {
    TestHost host({{"PROTO", "rtsp"}});
    EXPECT_FATAL_EXIT(selectAndLeave(host), "CRT-5024 rtsp is not implemented\n");
  }
  TestHost host({{"PROTO", "UDP"}, {"CAMERAMODEL", "Samsung"}});
  EXPECT_FATAL_EXIT(selectAndLeave(host), "CRT-5024 UDP is not implemented for Samsung\n");
}
