#pragma once

#include <UsageEnvironment.hh>
#include <array>
#include <memory>
#include <string>

#include "AbstractSink.h"
#include "ObserverFan.h"
#include "Options.h"
#include "Recording.h"
#include "Retriever.h"
#include "ServiceManager.h"
#include "StatusLine.h"
#include "StopControl.h"
#include "TraceWriter.h"

namespace host {

// One camera from its configuration to the end of its stream. Lives until the
// process ends, since threads of the module may outlast the stream.
class Program {
 public:
  // Opens what the options ask for; throws UsageError when that cannot be.
  explicit Program(const Options& options);

  // The exit status. Does not return where the module ends the process.
  int run();
  // Ends what is written; other threads may still be at work.
  void finish();

 private:
  void receive();
  void openRecording();
  void makeSinks();
  void closeSinks();

  const Options options_;
  Kelvane::Retriever retriever_;
  StatusLine status_;
  ServiceManager service_;
  std::unique_ptr<TraceWriter> trace_;
  Recording* recording_ = nullptr;
  ObserverFan observers_;
  StopControl control_;
  TaskScheduler* scheduler_ = nullptr;
  UsageEnvironment* env_ = nullptr;
  std::array<Kelvane::AbstractSink*, 3> sinks_{};  // by MEDIA_TYPE
  std::array<std::string, 3> sinkNames_;
};

}  // namespace host
