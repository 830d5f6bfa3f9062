#pragma once

#include <UsageEnvironment.hh>

#include "AbstractSink.h"
#include "Thread.h"
#include "TimeVal.h"

namespace Kelvane {

// What every producer is to the host: made once by the selection, init() and
// start() called once on the host's thread, then deleted. The sinks are the
// host's; the audio sink is never null. Failures end the process.
class NETMediaProducerImpl {
 public:
  NETMediaProducerImpl(AbstractSink* audio, AbstractSink* video, AbstractSink* metadata);
  virtual ~NETMediaProducerImpl();
  NETMediaProducerImpl(const NETMediaProducerImpl&) = delete;
  NETMediaProducerImpl& operator=(const NETMediaProducerImpl&) = delete;

  // Starts the receiver of external metadata when METADATA_PORT asks for it.
  // Always true; a receiver that fails ends the process from its own thread.
  virtual bool init();
  // Blocks for the life of the stream.
  virtual bool start() = 0;

 protected:
  // Waits; a zero interval returns at once.
  void delay(const Delay_Interval& interval);
  // live555's event loop until the host's stop flag.
  void runEventLoop();

  AbstractSink* aSink_;
  AbstractSink* vSink_;
  AbstractSink* dSink_;
  UsageEnvironment* env_;
  Thread* metadataStreamThread_ = nullptr;  // a MetadataStreamThread, owned
};

}  // namespace Kelvane
