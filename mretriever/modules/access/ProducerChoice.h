#pragma once

#include <string>

namespace Kelvane {

// Which producer the configuration asks for, decided without making it.
struct ProducerChoice {
  enum class Kind {
    none,  // the protocol is not implemented
    pelco,
    vsip,
    dante,
    samsung,
    bosch,
    pushIn,
    http,
    rtsp,
    transportStream,
    rtp,
    test,
    fake,
  };
  Kind kind;
  std::string keys;  // those that decided, as "PROTO=HTTP CAMERAMODEL=Dante"; for none the failure
};

// Reads PROTO, then what the protocol's rows need; an absent key throws
// std::invalid_argument. Comparisons are exact and case sensitive.
ProducerChoice chooseProducer();

// The class of that kind, without namespace.
const char* producerName(ProducerChoice::Kind kind);

}  // namespace Kelvane
