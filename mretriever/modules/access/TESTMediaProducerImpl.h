#pragma once

#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Sends the JPEG picture /tmp/test.jpg over and over at the retriever's frame
// rate. Only the video sink is used, and it is not initialised.
class TESTMediaProducerImpl : public NETMediaProducerImpl {
 public:
  TESTMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
      : NETMediaProducerImpl(audio, video, nullptr) {}
  bool start() override;
};

}  // namespace Kelvane
