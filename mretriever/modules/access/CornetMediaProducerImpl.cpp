#include "CornetMediaProducerImpl.h"

#include <arpa/inet.h>

#include <RTCP.hh>
#include <SimpleRTPSource.hh>
#include <string>

#include "Cfg.h"
#include "DeviceGroupsock.h"
#include "FailureReport.h"
#include "ReadAheadScheduler.h"
#include "TSSink.h"
#include "UDPTSFramedSource.h"

namespace Kelvane {

namespace {

constexpr unsigned char kPayloadTransportStream = 33;
constexpr unsigned kClock = 90000;  // Hz

std::uint16_t port(const char* key) {
  const auto number = static_cast<std::uint16_t>(Cfg::i_value(key));
  if (number == 0) FATAL_REPORT("Unknown %s or not properly defined", key);
  return number;
}

// A text that is no address becomes one that no join accepts.
in_addr configuredGroup() {
  in_addr group{INADDR_NONE};
  inet_pton(AF_INET, Cfg::value("MULTICAST_IP").c_str(), &group);
  return group;
}

}  // namespace

CornetMediaProducerImpl::CornetMediaProducerImpl(AbstractSink* audio, AbstractSink* video,
                                                 AbstractSink* metadata, bool waits)
    : NETMediaProducerImpl(audio, video, metadata),
      tsSink_(new TSSink(*env_, *this)),
      supportWaitState(waits),
      waitPidUpdater(waits ? std::make_unique<WaitPIDUpdateThread>() : nullptr),
      usingRTP(Cfg::value("PROTO") == "RTP") {}

CornetMediaProducerImpl::~CornetMediaProducerImpl() {
  waitPidUpdater.reset();
  Medium::close(tsSink_);
  closeSource();
}

bool CornetMediaProducerImpl::start() {
  openSocket();
  openSource();
  LOG_DEBUG("Staring stream to port %d", port_);
  tsSink_->startPlaying(*source_, sessionAfterPlaying, this);
  if (supportWaitState) waitPidUpdater->start();
  runEventLoop();

  tsSink_->stopPlaying();
  closeSource();
  return true;
}

void CornetMediaProducerImpl::openSocket() {
  if (Cfg::value("MODELID") != "Multicast") {
    port_ = port("RTP_UNICAST_PORT");
    rtpGroupsock_ = openUnicast(*env_, port_);
    return;
  }
  const in_addr group = configuredGroup();
  port_ = port("RTP_MULTICAST_PORT");
  rtpGroupsock_ = openMulticast(*env_, group, port_);
  const int error = joinGroup(*rtpGroupsock_, group);
  if (error != 0) FATAL_REPORT("Can't join multicast group, error code: %d\n", error);
}

void CornetMediaProducerImpl::openSource() {
  if (usingRTP) {
    auto* source = SimpleRTPSource::createNew(*env_, rtpGroupsock_, kPayloadTransportStream, kClock,
                                              "video/MPEG", 0, False);
    readDatagramsAhead(*source);
    source_ = source;
  } else {
    source_ = UDPTSFramedSource::createNew(*env_, rtpGroupsock_);
  }
}

void CornetMediaProducerImpl::sessionAfterPlaying(void* clientData) {
  auto* producer = static_cast<CornetMediaProducerImpl*>(clientData);
  Medium::close(producer->rtcpInstance_);
  producer->rtcpInstance_ = nullptr;
  producer->closeSource();
}

void CornetMediaProducerImpl::closeSource() {
  Medium::close(source_);
  source_ = nullptr;
  delete rtpGroupsock_;
  rtpGroupsock_ = nullptr;
}

}  // namespace Kelvane

// What the selection looks up in this library.
extern "C" Kelvane::NETMediaProducerImpl* mretriever_createCornetMediaProducer(
    Kelvane::AbstractSink* audio, Kelvane::AbstractSink* video, Kelvane::AbstractSink* metadata,
    bool waits) {
  return new Kelvane::CornetMediaProducerImpl(audio, video, metadata, waits);
}
