#pragma once

#include "NETMediaProducerImpl.h"

namespace Kelvane {

// Replays an elementary stream file in an endless loop at the retriever's
// frame rate, from a key frame on, stamped with the wall clock. Only the video
// sink is used. Ends at the stop flag; a file that cannot be opened ends the
// process.
class FAKEMediaProducerImpl : public NETMediaProducerImpl {
 public:
  FAKEMediaProducerImpl(AbstractSink* audio, AbstractSink* video)
      : NETMediaProducerImpl(audio, video, nullptr) {}
  bool start() override;
};

}  // namespace Kelvane
