#include "NETMediaProducerImpl.h"

#include <sys/select.h>

#include "AccessLog.h"
#include "Cfg.h"
#include "OnDemand.h"
#include "Retriever.h"

namespace Kelvane {

NETMediaProducerImpl::NETMediaProducerImpl(AbstractSink* audio, AbstractSink* video,
                                           AbstractSink* metadata)
    : aSink_(audio), vSink_(video), dSink_(metadata), env_(&audio->envir()) {}

NETMediaProducerImpl::~NETMediaProducerImpl() {
  delete metadataStreamThread_;
}

bool NETMediaProducerImpl::init() {
  if (Cfg::exist("METADATA_PORT") && !Cfg::value("METADATA_PORT").empty()) {
    LOG_DEBUG("Using metadata port %s for receiving external metadata",
              Cfg::value("METADATA_PORT").c_str());
    using Create = Thread*(int port, UsageEnvironment& env);
    auto* create = onDemand<Create>("libmretriever_ts.so", "mretriever_createMetadataStreamThread");
    metadataStreamThread_ = create(Cfg::i_value("METADATA_PORT"), *env_);
    metadataStreamThread_->start();
  }
  return true;
}

void NETMediaProducerImpl::delay(const Delay_Interval& interval) {
  timeval tv = interval.tv();
  select(1, nullptr, nullptr, nullptr, &tv);
}

void NETMediaProducerImpl::runEventLoop() {
  char* flag = Retriever::instance(nullptr, nullptr, nullptr, nullptr)->getStopFlagPtr();
  // The host's flag is a std::atomic<char> seen as a char.
  static_assert(sizeof(EventLoopWatchVariable) == 1);
  env_->taskScheduler().doEventLoop(reinterpret_cast<EventLoopWatchVariable*>(flag));
}

}  // namespace Kelvane
