// What each frame costs between a sink and the frame intake, and what a log
// line costs that is not written.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <BasicUsageEnvironment.hh>
#include <atomic>
#include <cstdlib>
#include <log4cpp/Priority.hh>
#include <new>
#include <vector>

#include "AccessLog.h"
#include "Cfg.h"
#include "Log4cppWrapper.h"
#include "MediaSinks.h"
#include "Retriever.h"

namespace {

std::atomic<unsigned long> allocations{0};

}  // namespace

// Counted for the whole process: malloc in the place of the C library's.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* malloc(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}

namespace {

void frameToIntake(benchmark::State& state) {
  Kelvane::Cfg::insert("CAMERAMODEL", "bench");
  Kelvane::Cfg::insert("PROTO", "FAKE");
  auto* scheduler = BasicTaskScheduler::createNew(100000);
  auto* env = BasicUsageEnvironment::createNew(*scheduler);
  Kelvane::VideoSink sink(*env);
  std::vector<unsigned char> frame(static_cast<std::size_t>(state.range(0)), 1);
  const timeval tv{1, 2};
  const unsigned long before = allocations.load();
  for (auto _ : state) {
    sink.addData(frame.data(), static_cast<unsigned>(frame.size()), tv);
  }
  // The frame's bytes, its record, and the record of its shared handle.
  state.counters["allocations"] = benchmark::Counter(
      static_cast<double>(allocations.load() - before), benchmark::Counter::kAvgIterations);
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
// 200 bytes of audio; 20000: a picture of 4 Mbit/s at 25 frames/s; a large key frame.
BENCHMARK(frameToIntake)->Arg(200)->Arg(20000)->Arg(200000);

void disabledLogLine(benchmark::State& state) {
  Kelvane::Log4cppWrapper::init(log4cpp::Priority::INFO);
  int frame = 0;
  for (auto _ : state) {
    LOG_DEBUG("Frame %d of %u bytes", frame, 20000U);
    benchmark::DoNotOptimize(++frame);
  }
}
BENCHMARK(disabledLogLine);

}  // namespace

BENCHMARK_MAIN();
