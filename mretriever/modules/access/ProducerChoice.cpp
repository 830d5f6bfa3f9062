#include "ProducerChoice.h"

#include <initializer_list>

#include "Cfg.h"

namespace Kelvane {

namespace {

using Kind = ProducerChoice::Kind;

ProducerChoice chosen(Kind kind, std::initializer_list<const char*> deciding) {
  std::string keys;
  for (const char* key : deciding) {
    keys += (keys.empty() ? "" : " ") + std::string(key) + "=" + Cfg::value(key);
  }
  return {kind, keys};
}

// The first row that holds decides. A Pelco camera gets its own protocol for
// MPEG-4 and H.264, snapshots through the Bosch producer, and plain HTTP else.
ProducerChoice overHttp() {
  const std::string model = Cfg::value("CAMERAMODEL");
  if (model == "Pelco") {
    const std::string format = Cfg::value("MEDIA_FORMAT");
    if (format == "mpeg4" || format == "h264") {
      return chosen(Kind::pelco, {"PROTO", "CAMERAMODEL", "MEDIA_FORMAT"});
    }
  }
  const auto byModel = [](Kind kind) { return chosen(kind, {"PROTO", "CAMERAMODEL"}); };
  if (model == "Verint") return byModel(Kind::vsip);
  if (model == "Dante") return byModel(Kind::dante);
  if (model == "Samsung") return byModel(Kind::samsung);
  if (model == "Bosch") return byModel(Kind::bosch);
  if (model == "Pelco" && Cfg::exist("SNAPSHOT_MODE") && Cfg::value("SNAPSHOT_MODE") == "on") {
    return chosen(Kind::bosch, {"PROTO", "CAMERAMODEL", "MEDIA_FORMAT", "SNAPSHOT_MODE"});
  }
  if (model == "iStream") return byModel(Kind::pushIn);
  return byModel(Kind::http);
}

bool sendsTransportStream(const std::string& model) {
  return model == "Cornet" || model == "ListenerMPEG2-TS";
}

}  // namespace

ProducerChoice chooseProducer() {
  const std::string proto = Cfg::value("PROTO");
  if (proto == "HTTP") return overHttp();
  if (proto == "RTSP") return chosen(Kind::rtsp, {"PROTO"});
  if (proto == "RTP") {
    const bool ts = sendsTransportStream(Cfg::value("CAMERAMODEL"));
    return chosen(ts ? Kind::transportStream : Kind::rtp, {"PROTO", "CAMERAMODEL"});
  }
  if (proto == "TEST") return chosen(Kind::test, {"PROTO"});
  if (proto == "FAKE") return chosen(Kind::fake, {"PROTO"});
  if (proto == "UDP") {
    const std::string model = Cfg::value("CAMERAMODEL");
    if (sendsTransportStream(model)) {
      return chosen(Kind::transportStream, {"PROTO", "CAMERAMODEL"});
    }
    return {Kind::none, "CRT-5024 " + proto + " is not implemented for " + model};
  }
  return {Kind::none, "CRT-5024 " + proto + " is not implemented"};
}

const char* producerName(Kind kind) {
  switch (kind) {
    case Kind::none:
      return "none";
    case Kind::pelco:
      return "PelcoMediaProducerImpl";
    case Kind::vsip:
      return "VSIPMediaProducerImpl";
    case Kind::dante:
      return "DanteMediaProducerImpl";
    case Kind::samsung:
      return "SamsungMediaProducerImpl";
    case Kind::bosch:
      return "BoschMediaProducerImpl";
    case Kind::pushIn:
      return "PushInMediaProducerImpl";
    case Kind::http:
      return "HTTPMediaProducerImpl";
    case Kind::rtsp:
      return "RTSPMediaProducerImpl";
    case Kind::transportStream:
      return "CornetMediaProducerImpl";
    case Kind::rtp:
      return "RTPMediaProducerImpl";
    case Kind::test:
      return "TESTMediaProducerImpl";
    case Kind::fake:
      return "FAKEMediaProducerImpl";
  }
  return "none";
}

}  // namespace Kelvane
