#include "Program.h"

#include <cxxabi.h>

#include <BasicUsageEnvironment.hh>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <typeinfo>

#include "AccessLog.h"
#include "BrokerOpening.h"
#include "Cfg.h"
#include "Exceptions.h"
#include "MediaSinks.h"
#include "NETMediaProducer.h"
#include "Plugins.h"
#include "ReadAheadScheduler.h"

namespace host {

using Kelvane::Cfg;

namespace {

// The library ticks this often with nothing to do, and the stop flag is seen
// at a tick. Its default of 10 ms costs more than a 2 Mbit/s stream does.
constexpr unsigned kTickMicros = 100000;

std::string optionalKey(const std::string& key, const std::string& otherwise) {
  return Cfg::exist(key) ? Cfg::value(key) : otherwise;
}

std::string className(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), free);
  const std::string full = name ? name.get() : type.name();
  return full.substr(full.rfind(':') + 1);
}

int objectId() {
  try {
    return Cfg::i_value("OBJID");
  } catch (const std::invalid_argument&) {
    return 0;
  }
}

}  // namespace

Program::Program(const Options& options)
    : options_(options),
      status_(options.traceFile == "-" ? stderr : stdout),
      control_({options.durationSeconds, options.stopGraceSeconds}, {&status_, &service_},
               [this](const char* reason) {
                 if (trace_) trace_->stopped(reason);
                 service_.stopping();
                 retriever_.stop();
               }) {
  for (const auto& [key, value] : options_.settings) Cfg::insert(key, value);
  if (!Cfg::exist("MASTER_NODE")) Cfg::insert("MASTER_NODE", "localhost");
  try {
    if (!options_.stateSocket.empty()) {
      retriever_.streamState().open(options_.stateSocket, objectId());
    }
    if (!options_.traceFile.empty()) trace_ = std::make_unique<TraceWriter>(options_.traceFile);
  } catch (const std::runtime_error& failure) {
    throw UsageError(failure.what());
  }
}

int Program::run() {
  try {
    openRecording();
    if (!options_.broker.empty()) openBrokerBesideStream(options_.broker, retriever_);
    receive();
    return 0;
  } catch (const std::exception& failure) {
    LOG_ERROR("%s", failure.what());
    return 1;
  }
}

void Program::openRecording() {
  if (trace_) observers_.add(trace_.get());
  status_.setVideoCodec(optionalKey("MEDIA_FORMAT", ""));
  observers_.add(&status_);
  observers_.add(&service_);
  if (!options_.recordFolder.empty()) {
    recording_ = host::openRecording({options_.recordFolder, optionalKey("DEVID", "camera"),
                                      optionalKey("MEDIA_FORMAT", ""), options_.segmentSeconds});
    observers_.add(recording_);
    Kelvane::setMetadataStore(recording_);
  }
  Kelvane::setHostObserver(&observers_);
}

void Program::receive() {
  makeSinks();
  control_.start();
  std::unique_ptr<Kelvane::NETMediaProducerImpl> producer(Kelvane::getMediaProducerImplementation(
      sinks_[Kelvane::AUDIO], sinks_[Kelvane::VIDEO], sinks_[Kelvane::METADATA]));
  const Kelvane::NETMediaProducerImpl& made = *producer;
  if (trace_) trace_->started(className(typeid(made)));
  producer->init();
  service_.ready();
  const bool result = producer->start();
  control_.streamEnded();
  if (trace_) trace_->ended(result);
  producer.reset();  // some devices are told good-bye here
  closeSinks();
}

void Program::makeSinks() {
  scheduler_ = Kelvane::ReadAheadScheduler::createNew(kTickMicros);
  env_ = BasicUsageEnvironment::createNew(*scheduler_);
  sinks_[Kelvane::AUDIO] = new Kelvane::AudioSink(*env_);
  sinks_[Kelvane::VIDEO] = new Kelvane::VideoSink(*env_);
  sinks_[Kelvane::METADATA] = new Kelvane::MetadataSink(*env_);
  for (std::size_t i = 0; i < sinks_.size(); ++i) sinkNames_[i] = sinks_[i]->name();
}

void Program::closeSinks() {
  // By name: a producer may have closed one, which deleted it.
  sinks_.fill(nullptr);
  for (const std::string& name : sinkNames_) Medium::close(*env_, name.c_str());
  // The environment stays while a medium of the producer is left in it.
  if (env_->reclaim()) delete scheduler_;
}

void Program::finish() {
  if (recording_ != nullptr) recording_->close();
  status_.finish();
}

}  // namespace host
