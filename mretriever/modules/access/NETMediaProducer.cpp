#include "NETMediaProducer.h"

#include <string>

#include "BoschMediaProducerImpl.h"
#include "Cfg.h"
#include "DanteMediaProducerImpl.h"
#include "FAKEMediaProducerImpl.h"
#include "FailureReport.h"
#include "HTTPMediaProducerImpl.h"
#include "OnDemand.h"
#include "ProducerChoice.h"
#include "RTPMediaProducerImpl.h"
#include "RTSPMediaProducerImpl.h"
#include "SamsungMediaProducerImpl.h"
#include "TESTMediaProducerImpl.h"
#include "VSIPMediaProducerImpl.h"

namespace Kelvane {

namespace {

struct Sinks {
  AbstractSink* audio;
  AbstractSink* video;
  AbstractSink* metadata;
};

template <class Producer>
NETMediaProducerImpl* make(const Sinks& sinks) {
  return new Producer(sinks.audio, sinks.video);
}

// From a shared object of its own, for what only some cameras need.
NETMediaProducerImpl* load(const Sinks& sinks, const char* library, const char* symbol) {
  using Create = NETMediaProducerImpl*(AbstractSink*, AbstractSink*);
  return onDemand<Create>(library, symbol)(sinks.audio, sinks.video);
}

NETMediaProducerImpl* makeRtsp(const Sinks& sinks) {
  if (Cfg::value("MEDIA_FORMAT") == "audio" && Cfg::value("CAMERAMODEL") == "panasonic" &&
      Cfg::value("MODELID") == "BL-C210A") {
    LOG_DEBUG("Switching to proto 'HTTP' despite 'RTSP' was set");
    Cfg::insert("PROTO", "HTTP");
    // Made and dropped, for the life of the process: the camera is still
    // served over RTSP below, but the sinks read PROTO as HTTP from now on.
    static NETMediaProducerImpl* const dropped = make<HTTPMediaProducerImpl>(sinks);
    static_cast<void>(dropped);
  }
  const bool raven = Cfg::value("CAMERAMODEL") == "MangoDSP" && Cfg::value("MODELID") == "Raven-M";
  return new RTSPMediaProducerImpl(sinks.audio, sinks.video, sinks.metadata,
                                   raven ? APP_VLC : APP_NV);
}

NETMediaProducerImpl* loadTransportStream(const Sinks& sinks) {
  using Create = NETMediaProducerImpl*(AbstractSink*, AbstractSink*, AbstractSink*, bool);
  auto* create = onDemand<Create>("libmretriever_ts.so", "mretriever_createCornetMediaProducer");
  const bool waits = Cfg::value("CAMERAMODEL") == "ListenerMPEG2-TS";
  return create(sinks.audio, sinks.video, sinks.metadata, waits);
}

}  // namespace

NETMediaProducerImpl* getMediaProducerImplementation(AbstractSink* audioSink,
                                                     AbstractSink* videoSink,
                                                     AbstractSink* metadataSink) {
  using Kind = ProducerChoice::Kind;
  const Sinks sinks{audioSink, videoSink, metadataSink};
  const ProducerChoice choice = chooseProducer();
  switch (choice.kind) {
    case Kind::none:
      break;
    case Kind::pelco:
      return load(sinks, "libmretriever_pelco.so", "mretriever_createPelcoProducer");
    case Kind::vsip:
      return make<VSIPMediaProducerImpl>(sinks);
    case Kind::dante:
      return make<DanteMediaProducerImpl>(sinks);
    case Kind::samsung:
      return make<SamsungMediaProducerImpl>(sinks);
    case Kind::bosch:
      return make<BoschMediaProducerImpl>(sinks);
    case Kind::pushIn:
      return load(sinks, "libmretriever_pushin.so", "mretriever_createPushInMediaProducer");
    case Kind::http:
      return make<HTTPMediaProducerImpl>(sinks);
    case Kind::rtsp:
      return makeRtsp(sinks);
    case Kind::transportStream:
      return loadTransportStream(sinks);
    case Kind::rtp:
      return make<RTPMediaProducerImpl>(sinks);
    case Kind::test:
      return make<TESTMediaProducerImpl>(sinks);
    case Kind::fake:
      return make<FAKEMediaProducerImpl>(sinks);
  }
  FATAL_EXIT("%s", choice.keys.c_str());
}

}  // namespace Kelvane
