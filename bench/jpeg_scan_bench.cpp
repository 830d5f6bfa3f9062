// The search for a picture's end, copy into the frame buffer included, in
// blocks of the size in which the stream hands them over.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "JpegScan.h"

namespace {

constexpr std::size_t kHead = 624;
constexpr std::size_t kBlock = 12000;

// Entropy-coded data as encoders write it: any bytes, 0xFF always with a zero behind.
std::vector<std::uint8_t> picture(std::size_t size) {
  std::mt19937 random(1);
  std::vector<std::uint8_t> bytes;
  while (bytes.size() < size) {
    bytes.push_back(static_cast<std::uint8_t>(random()));
    if (bytes.back() == 0xFF) bytes.push_back(0);
  }
  bytes.push_back(0xFF);
  bytes.push_back(0xD9);
  return bytes;
}

void scanPicture(benchmark::State& state) {
  const auto input = picture(static_cast<std::size_t>(state.range(0)));
  std::vector<std::uint8_t> frame(1000064);
  for (auto _ : state) {
    Kelvane::JpegScan scan(frame.data(), kHead, 1000000);
    std::size_t at = 0;
    while (!scan.done() && at < input.size()) {
      at += scan.take(input.data() + at, std::min(kBlock, input.size() - at));
    }
    if (scan.result() != Kelvane::JpegScan::Result::complete) state.SkipWithError("no end found");
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(input.size()));
}
BENCHMARK(scanPicture)->Arg(20000)->Arg(100000)->Arg(900000);

}  // namespace

BENCHMARK_MAIN();
