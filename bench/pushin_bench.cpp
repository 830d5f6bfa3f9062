// Push-in: what one process takes from a peer that sends as fast as it is
// allowed to, beside a bare recv() loop on the same datagrams. A local
// datagram socket holds the sender up instead of losing anything; each round
// checks that every message has come. cpu_s_per_GB is the receiver's alone.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <BasicUsageEnvironment.hh>
#include <algorithm>
#include <string>
#include <vector>

#include "Cfg.h"
#include "MediaSinks.h"
#include "PushInMediaProducerImpl.h"
#include "Retriever.h"

namespace {

constexpr std::size_t kDatagram = 32000;
constexpr std::size_t kBytes = 400000000;  // a round

std::string deviceId() {
  return "bench" + std::to_string(getpid());
}

sockaddr_un address() {
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  const std::string path = "/tmp/." + deviceId() + ".media.recorder.sock";
  path.copy(name.sun_path, sizeof name.sun_path - 1);
  return name;
}

// A message of `size` bytes in all, as a recorder sends it.
std::string messageOf(std::size_t size) {
  const std::string head =
      "Content-Type: video/H264\r\nTimestamp: 1300000000.040000\r\nContent-Length: ";
  const std::string end = "\r\n\r\n";
  std::size_t body = size - head.size() - end.size();
  body -= std::to_string(body).size();
  return head + std::to_string(body) + end + std::string(body, 'v');
}

// The peer, in a process of its own.
class Sender {
 public:
  Sender(const std::string& message, std::size_t count) : pid_(0) {
    const sockaddr_un name = address();  // of the parent
    pid_ = fork();
    if (pid_ != 0) return;
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    while (connect(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) usleep(1000);
    for (std::size_t i = 0; i < count; ++i) {
      for (std::size_t at = 0; at < message.size(); at += kDatagram) {
        const std::size_t size = std::min(kDatagram, message.size() - at);
        if (send(fd, message.data() + at, size, 0) < 0) _exit(1);
      }
    }
    _exit(0);
  }
  ~Sender() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

 private:
  pid_t pid_;
};

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void report(benchmark::State& state, std::size_t messages, std::size_t bytes, double cpu) {
  const auto rounds = static_cast<double>(state.iterations());
  state.counters["messages_per_s"] =
      benchmark::Counter(static_cast<double>(messages) * rounds, benchmark::Counter::kIsRate);
  state.counters["cpu_s_per_GB"] = cpu / (static_cast<double>(bytes) * rounds / 1e9);
}

void BM_BareRecv(benchmark::State& state) {
  const std::string message = messageOf(static_cast<std::size_t>(state.range(0)));
  const std::size_t count = kBytes / message.size();
  std::vector<char> buffer(kDatagram);
  double cpu = 0;
  for (auto _ : state) {
    const sockaddr_un name = address();
    unlink(name.sun_path);
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) abort();
    const Sender sender(message, count);
    const double begin = cpuSeconds();
    for (std::size_t bytes = 0; bytes < count * message.size();) {
      const ssize_t got = recv(fd, buffer.data(), buffer.size(), 0);
      if (got <= 0) abort();
      bytes += static_cast<std::size_t>(got);
    }
    cpu += cpuSeconds() - begin;
    close(fd);
    unlink(name.sun_path);
  }
  report(state, count, count * message.size(), cpu);
}

// Ends the event loop with the last frame.
template <class Base>
class Counting : public Base {
 public:
  Counting(UsageEnvironment& env, Kelvane::Retriever& retriever, std::size_t count)
      : Base(env), left_(count), retriever_(retriever) {}
  void addData(unsigned char* data, unsigned size, const timeval& tv) override {
    if constexpr (std::is_base_of_v<Kelvane::HostSink, Base>) Base::addData(data, size, tv);
    if (--left_ == 0) retriever_.stop();
  }

 private:
  std::size_t left_;
  Kelvane::Retriever& retriever_;
};

// Kelvane::AbstractSink: the producer alone. Kelvane::VideoSink: with the copy
// that the host makes of each frame.
template <class Sink>
void BM_PushIn(benchmark::State& state) {
  const std::string message = messageOf(static_cast<std::size_t>(state.range(0)));
  const std::size_t count = kBytes / message.size();
  Kelvane::Cfg::insert("DEVID", deviceId());
  Kelvane::Cfg::insert("CAMERAMODEL", "bench");
  Kelvane::Cfg::insert("PROTO", "HTTP");
  double cpu = 0;
  for (auto _ : state) {
    Kelvane::Retriever retriever;
    TaskScheduler* scheduler = BasicTaskScheduler::createNew();
    UsageEnvironment* env = BasicUsageEnvironment::createNew(*scheduler);
    auto* sink = new Counting<Sink>(*env, retriever, count);
    {
      Kelvane::PushInMediaProducerImpl producer(sink, sink, nullptr);
      const Sender sender(message, count);
      const double begin = cpuSeconds();
      producer.start();  // returns when every message has come
      cpu += cpuSeconds() - begin;
    }
    Medium::close(sink);
    env->reclaim();
    delete scheduler;
  }
  report(state, count, count * message.size(), cpu);
}

constexpr std::int64_t kSizes[] = {4000, 32000, 320000};
void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const std::int64_t size : kSizes) benchmark->Arg(size);
  benchmark->UseRealTime()->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(BM_BareRecv)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_PushIn, Kelvane::AbstractSink)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_PushIn, Kelvane::VideoSink)->Apply(sizes);

BENCHMARK_MAIN();
