#include "RTPMediaProducerImpl.h"

#include <H264VideoRTPSource.hh>
#include <JPEGVideoRTPSource.hh>
#include <MPEG1or2VideoRTPSource.hh>
#include <MPEG4ESVideoRTPSource.hh>
#include <RTCP.hh>
#include <SimpleRTPSource.hh>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "Cfg.h"
#include "DeviceGroupsock.h"
#include "FailureReport.h"
#include "ReadAheadScheduler.h"

namespace Kelvane {

namespace {

constexpr unsigned kClock = 90000;  // Hz
constexpr unsigned char kPayloadMpeg = 32;
constexpr unsigned char kPayloadJpeg = 26;
constexpr unsigned char kPayloadDynamic = 96;

// The first row that fits decides; no model fits all.
struct Format {
  const char* mediaFormat;
  const char* model;
  RTPSource* (*create)(UsageEnvironment& env, Groupsock* socket);
};

constexpr Format kFormats[] = {
    // A Radiant sends an elementary stream without the payload's own header.
    {"mpeg2", "Radiant",
     [](UsageEnvironment& env, Groupsock* socket) -> RTPSource* {
       return SimpleRTPSource::createNew(env, socket, kPayloadMpeg, kClock, "video/MPEG", 0, False);
     }},
    {"mpeg2", nullptr,
     [](UsageEnvironment& env, Groupsock* socket) -> RTPSource* {
       return MPEG1or2VideoRTPSource::createNew(env, socket, kPayloadMpeg, kClock);
     }},
    {"mjpg", nullptr,
     [](UsageEnvironment& env, Groupsock* socket) -> RTPSource* {
       return JPEGVideoRTPSource::createNew(env, socket, kPayloadJpeg, kClock);
     }},
    {"mpeg4", nullptr,
     [](UsageEnvironment& env, Groupsock* socket) -> RTPSource* {
       return MPEG4ESVideoRTPSource::createNew(env, socket, kPayloadDynamic, kClock);
     }},
    {"h264", nullptr,
     [](UsageEnvironment& env, Groupsock* socket) -> RTPSource* {
       return H264VideoRTPSource::createNew(env, socket, kPayloadDynamic, kClock);
     }},
};

RTPSource* createSource(UsageEnvironment& env, Groupsock* socket) {
  const std::string mediaFormat = Cfg::value("MEDIA_FORMAT");
  const std::string model = Cfg::value("CAMERAMODEL");
  for (const Format& format : kFormats) {
    if (mediaFormat != format.mediaFormat) continue;
    if (format.model == nullptr || model == format.model) return format.create(env, socket);
  }
  FATAL_REPORT("CRT-5013 %s is not currently supported", mediaFormat.c_str());
}

// Zero when the key is absent, no number, or a multiple of 65536.
std::uint16_t configuredPort() {
  try {
    return static_cast<std::uint16_t>(Cfg::i_value("RTP_UNICAST_PORT"));
  } catch (const std::invalid_argument&) {
    return 0;
  }
}

}  // namespace

bool RTPMediaProducerImpl::start() {
  const std::uint16_t port = configuredPort();
  if (port == 0) FATAL_REPORT("Unknown RTP_UNICAST_PORT or not properly defined");
  if (port % 2 != 0) LOG_WARN("RTP_UNICAST_PORT is not even");

  rtpGroupsock_ = openUnicast(*env_, port);
  source_ = createSource(*env_, rtpGroupsock_);
  readDatagramsAhead(*source_);
  LOG_DEBUG("Starting receiving unicast stream at port %d...", port);
  vSink_->startPlaying(*source_, sessionAfterPlaying, this);
  runEventLoop();

  if (vSink_ != nullptr) vSink_->stopPlaying();
  closeSource();
  return true;
}

void RTPMediaProducerImpl::sessionAfterPlaying(void* clientData) {
  auto* producer = static_cast<RTPMediaProducerImpl*>(clientData);
  Medium::close(producer->rtcpInstance_);
  producer->rtcpInstance_ = nullptr;
  Medium::close(producer->vSink_);
  producer->vSink_ = nullptr;
  producer->closeSource();
}

void RTPMediaProducerImpl::closeSource() {
  Medium::close(source_);
  source_ = nullptr;
  delete rtpGroupsock_;
  rtpGroupsock_ = nullptr;
}

}  // namespace Kelvane
