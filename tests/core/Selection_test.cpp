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
  const struct {
    TestHost::Keys keys;
    const char* producer;
  } cases[] = {
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "Pelco"}, {"MEDIA_FORMAT", "mpeg4"}}, "PelcoMedia"},
      {{{"PROTO", "HTTP"},
        {"CAMERAMODEL", "Pelco"},
        {"MEDIA_FORMAT", "h264"},
        {"SNAPSHOT_MODE", "on"}},
       "PelcoMedia"},
      {{{"PROTO", "HTTP"},
        {"CAMERAMODEL", "Pelco"},
        {"MEDIA_FORMAT", "mjpg"},
        {"SNAPSHOT_MODE", "on"}},
       "BoschMedia"},
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "Pelco"}, {"MEDIA_FORMAT", "mjpg"}}, "4HTTP|HTTPMedia"},
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "Verint"}}, "VSIPMedia"},
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "Dante"}}, "DanteMedia"},
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "Samsung"}}, "SamsungMedia"},
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "Bosch"}}, "BoschMedia"},
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "bosch"}}, "HTTPMedia"},
      {{{"PROTO", "RTSP"}}, "RTSPMedia"},
      // The camera is served over RTSP while PROTO reads HTTP from then on.
      {{{"PROTO", "RTSP"},
        {"MEDIA_FORMAT", "audio"},
        {"CAMERAMODEL", "panasonic"},
        {"MODELID", "BL-C210A"}},
       "RTSPMedia.*PROTO HTTP"},
      {{{"PROTO", "RTP"}}, "3RTP|RTPMedia"},
      {{{"PROTO", "RTP"}, {"CAMERAMODEL", "Cornet"}}, "CornetMedia"},
      {{{"PROTO", "UDP"}, {"CAMERAMODEL", "Cornet"}}, "CornetMedia"},
      {{{"PROTO", "UDP"}, {"CAMERAMODEL", "ListenerMPEG2-TS"}}, "CornetMedia"},
      {{{"PROTO", "TEST"}}, "TESTMedia"},
      {{{"PROTO", "FAKE"}}, "FAKEMedia"},
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

TEST(Selection, AnAbsentKeyIsNamed) {
  TestHost host;
  Cfg::clear();
  Cfg::insert("PROTO", "HTTP");
  try {
    Kelvane::getMediaProducerImplementation(host.audio(), host.video(), host.metadata());
    FAIL();
  } catch (const std::invalid_argument& failure) {
    EXPECT_THAT(failure.what(), testing::HasSubstr("CAMERAMODEL"));
  }
}
