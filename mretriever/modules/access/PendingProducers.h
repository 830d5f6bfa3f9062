#pragma once

#include "Cfg.h"
#include "FailureReport.h"
#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Producers that the selection knows and that cannot receive yet.
class PendingProducer : public NETMediaProducerImpl {
 public:
  using NETMediaProducerImpl::NETMediaProducerImpl;
  bool start() override {
    FATAL_EXIT("CRT-5024 %s is not implemented", Cfg::value("PROTO").c_str());
  }
};

#define PENDING_PRODUCER(name)                                                                 \
  class name : public PendingProducer {                                                        \
   public:                                                                                     \
    name(AbstractSink* audio, AbstractSink* video) : PendingProducer(audio, video, nullptr) {} \
  }

PENDING_PRODUCER(VSIPMediaProducerImpl);
PENDING_PRODUCER(DanteMediaProducerImpl);
PENDING_PRODUCER(SamsungMediaProducerImpl);

}  // namespace Kelvane
