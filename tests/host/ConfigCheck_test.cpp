#include "ConfigCheck.h"

#include <gmock/gmock.h>

#include "Cfg.h"

using testing::HasSubstr;
using testing::Not;

namespace {

host::ConfigReport check(const host::Settings& settings) {
  Kelvane::Cfg::clear();
  return host::checkConfig(settings);
}

const host::Settings kCamera = {
    {"PROTO", "RTSP"},     {"CAMERAMODEL", "any"}, {"DEVIP", "192.0.2.1"}, {"MEDIA_FORMAT", "h264"},
    {"USRNAME", "viewer"}, {"PASSWD", "secret"},   {"RTSP_URL", "/live"},  {"RTP_OVER_TCP", "on"}};

host::Settings with(host::Settings settings, const host::Settings& more) {
  settings.insert(settings.end(), more.begin(), more.end());
  return settings;
}

}  // namespace

TEST(ConfigCheck, TellsTheProducerAndWhatItReads) {
  const auto good = check(with(kCamera, {{"HTTP_PORT", "80"}}));
  EXPECT_EQ(good.problems, 0U) << good.text;
  EXPECT_THAT(good.text, HasSubstr("producer: RTSPMediaProducerImpl\nbecause: PROTO=RTSP\n"));
  EXPECT_THAT(good.text, HasSubstr("reads: RTSP_URL=/live\n"));
  EXPECT_THAT(good.text, HasSubstr("not read: HTTP_PORT\n"));
  EXPECT_THAT(good.text, Not(HasSubstr("secret")));
}

TEST(ConfigCheck, NamesWhatIsWrong) {
  const struct {
    host::Settings settings;
    const char* line;
  } cases[] = {
      {{}, "missing: Configuration key PROTO is absent"},
      {{{"PROTO", "rtsp"}}, "CRT-5024 rtsp is not implemented"},
      {{{"PROTO", "RTSP"}, {"CAMERAMODEL", "x"}}, "missing: RTSP_URL"},
      {with(kCamera, {{"RTSP_PORT", "65536"}}), "out of range: RTSP_PORT=65536 (1 to 65535)"},
      {with(kCamera, {{"RTSP_PORT", "554x"}}), "out of range: RTSP_PORT=554x"},
      {with(kCamera, {{"RTSP_PORT", "5e2"}}), "out of range: RTSP_PORT=5e2"},
      {with(kCamera, {{"AUDIO", "yes"}}), "out of range: AUDIO=yes (on off)"},
      {with(kCamera, {{"RTSP_ULR", "/live"}}), "unknown: RTSP_ULR"},
      {with(kCamera, {{"STREAM_PROBE", "5"}}), "missing: OBJID"},
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "Dante"}, {"MEDIA_FORMAT", "h264"}},
       "out of range: MEDIA_FORMAT=h264 (mpeg4)"},
      {{{"PROTO", "HTTP"}, {"CAMERAMODEL", "Verint"}, {"DEFINEDUID", std::string(65, '0')}},
       "out of range: DEFINEDUID has 65 characters (66 to 4096)"},
      {{{"PROTO", "UDP"}, {"CAMERAMODEL", "Cornet"}, {"MODELID", "Multicast"}},
       "missing: MULTICAST_IP"},
  };
  for (const auto& c : cases) {
    const auto report = check(c.settings);
    EXPECT_GT(report.problems, 0U) << c.line;
    EXPECT_THAT(report.text, HasSubstr(std::string(c.line)));
  }
}
