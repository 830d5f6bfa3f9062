#pragma once

#include "NETMediaProducerImpl.h"

namespace Kelvane {

// The producer for the camera that the keys PROTO, CAMERAMODEL, MODELID,
// MEDIA_FORMAT and SNAPSHOT_MODE describe. The caller owns it. An absent key
// among those that the choice needs throws std::invalid_argument; an unknown
// protocol ends the process.
NETMediaProducerImpl* getMediaProducerImplementation(AbstractSink* audioSink,
                                                     AbstractSink* videoSink,
                                                     AbstractSink* metadataSink);

}  // namespace Kelvane
