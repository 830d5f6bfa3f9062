// The vendors' readers beside a bare recv(MSG_WAITALL) loop of header and
// payload, over the same bytes from a loopback connection. CPU is that of the
// reading thread.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <BasicUsageEnvironment.hh>
#include <log4cpp/Priority.hh>
#include <string>
#include <thread>
#include <vector>

#include "Cfg.h"
#include "DanteMediaProducerImpl.h"
#include "Log4cppWrapper.h"
#include "Retriever.h"
#include "SamsungMediaProducerImpl.h"
#include "UniqueFd.h"
#include "VSIPMediaProducerImpl.h"

using namespace Kelvane;

namespace {

constexpr int kFrames = 2000;
constexpr std::size_t kFrameSize = 40000;  // 8 Mbit/s at 25 frames a second

Retriever& retriever() {
  static Retriever instance;
  return instance;
}

// Takes frames without a cost of its own and stops the reader at the last one.
class CountingSink : public AbstractSink {
 public:
  explicit CountingSink(UsageEnvironment& env) : AbstractSink(env) {}
  void addData(unsigned char*, unsigned int, const timeval&) override {
    if (++frames == last) retriever().stop();
  }
  int frames = 0;
  int last = kFrames;
};

struct Connection {
  UniqueFd reader, writer;
  Connection() {
    const UniqueFd listener(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&name);
    socklen_t length = sizeof name;
    writer.reset(socket(AF_INET, SOCK_STREAM, 0));
    if (bind(listener.get(), generic, length) != 0 || listen(listener.get(), 1) != 0 ||
        getsockname(listener.get(), generic, &length) != 0 ||
        connect(writer.get(), generic, length) != 0) {
      abort();
    }
    reader.reset(accept(listener.get(), nullptr, nullptr));
  }
};

struct Packet {
  std::string header;
  std::string payload;
};

std::string le32(std::size_t value) {
  std::string text;
  for (int i = 0; i < 4; ++i) text.push_back(static_cast<char>(value >> (8 * i)));
  return text;
}

Packet samsungPacket(std::size_t number, const std::string& payload) {
  const std::string more(number == 0 ? 72 : 0, 'h');
  const std::string size = le32(12 + more.size() + payload.size()).substr(0, 2);
  const std::string mark = number == 0 ? std::string("\0\0\x80\x01", 4) : std::string(4, '\0');
  return {"SDVR" + std::string(2, '\0') + size + mark, more + payload};
}

Packet vsipPacket(std::size_t number, const std::string& payload) {
  const std::size_t size = 6 + payload.size();
  return {std::string{static_cast<char>(number >> 8), static_cast<char>(number),
                      static_cast<char>(size >> 8), static_cast<char>(size), 0, 0},
          payload};
}

Packet dantePacket(const std::string& data) {
  const std::size_t size = data.size() / 4 * 4;
  return {le32(24 + size) + le32(0x102) + std::string(12, '\0') + le32(size), data.substr(0, size)};
}

// A frame of pictures: every 25th is coded by itself. Bytes as random as real ones.
std::string frame(int index, const std::string& head) {
  std::string data = head;
  std::uint32_t seed = 12345U + static_cast<std::uint32_t>(index % 7);
  while (data.size() < kFrameSize) {
    seed = seed * 1664525U + 1013904223U;
    const auto byte = static_cast<char>(seed >> 24);
    data.push_back(byte == 0 ? 'z' : byte);
  }
  return data;
}

template <class Make>
std::vector<Packet> cut(const std::string& data, std::size_t packetSize, Make make) {
  std::vector<Packet> packets;
  for (std::size_t at = 0, i = 0; at < data.size(); at += packetSize, ++i) {
    packets.push_back(make(i, data.substr(at, packetSize)));
  }
  return packets;
}

struct Vendor {
  std::size_t headerSize;
  std::vector<Packet> (*packets)(int index, std::size_t packetSize);
  void (*read)(CountingSink& sink, int socket);
  int framesMore;  // delivered beside those that are sent
};

std::string vop(bool key) {
  return std::string("\0\0\1\xB6", 4) + (key ? '\x10' : '\x50');
}

const Vendor kSamsung{12,
                      [](int index, std::size_t size) {
                        return cut(frame(index, vop(index % 25 == 0)), size, samsungPacket);
                      },
                      [](CountingSink& sink, int socket) {
                        SamsungMediaProducerImpl(&sink, &sink).receive_mpeg4(socket);
                      },
                      -1};
const Vendor kVsip{6,
                   [](int index, std::size_t size) {
                     const std::string vos("\0\0\1\xB0\xF5", 5);
                     return cut(frame(index, (index == 0 ? vos : "") + vop(index % 25 == 0)), size,
                                vsipPacket);
                   },
                   [](CountingSink& sink, int socket) {
                     // Lives on: its worker is at its page for the whole run.
                     static auto* producer = new VSIPMediaProducerImpl(&sink, &sink);
                     static_cast<void>(producer);
                     producer->receive_mpeg4(socket);
                   },
                   -1};
const Vendor kDante{24,
                    [](int index, std::size_t) {
                      const std::string head = index % 25 == 0 ? std::string("\1\1\0\0", 4)
                                                               : std::string("\xB6\1\0\0", 4);
                      return std::vector<Packet>{dantePacket(frame(index, head))};
                    },
                    [](CountingSink& sink, int socket) {
                      DanteMediaProducerImpl(&sink, &sink).receive_stream(socket);
                    },
                    1};

// All bytes, sent as fast as they are taken.
struct Sender {
  Sender(const Vendor& vendor, std::size_t packetSize) {
    for (int i = 0; i < kFrames; ++i) {
      for (Packet& packet : vendor.packets(i, packetSize)) {
        if (i < 25) cycle += packet.header + packet.payload;
        if (i < 25) sizes.push_back(packet.payload.size());
      }
      if (i == 24) break;
    }
  }
  void run(int socket) const {
    for (int i = 0; i < kFrames / 25; ++i) {
      std::size_t at = 0;
      while (at < cycle.size()) {
        const ssize_t put = send(socket, cycle.data() + at, cycle.size() - at, MSG_NOSIGNAL);
        if (put <= 0) return;
        at += static_cast<std::size_t>(put);
      }
    }
  }
  std::string cycle;
  std::vector<std::size_t> sizes;
};

void readBare(const Vendor& vendor, const Sender& sender, int socket, unsigned char* buffer) {
  for (int i = 0; i < kFrames / 25; ++i) {
    for (const std::size_t size : sender.sizes) {
      char header[32];
      if (recv(socket, header, vendor.headerSize, MSG_WAITALL) <= 0) abort();
      if (recv(socket, buffer, size, MSG_WAITALL) <= 0) abort();
    }
  }
}

void measure(benchmark::State& state, const Vendor& vendor, bool bare) {
  const auto packetSize = static_cast<std::size_t>(state.range(0));
  const Sender sender(vendor, packetSize);
  static UsageEnvironment* env = BasicUsageEnvironment::createNew(*BasicTaskScheduler::createNew());
  static auto* sink = new CountingSink(*env);
  sink->last = bare ? -1 : kFrames + vendor.framesMore;
  for (auto _ : state) {
    state.PauseTiming();
    const Connection connection;
    sink->frames = 0;
    *retriever().getStopFlagPtr() = 0;
    std::thread sending([&] { sender.run(connection.writer.get()); });
    state.ResumeTiming();
    if (bare) {
      readBare(vendor, sender, connection.reader.get(), sink->buffer);
    } else {
      vendor.read(*sink, connection.reader.get());
    }
    state.PauseTiming();
    shutdown(connection.reader.get(), SHUT_RDWR);
    sending.join();
    state.ResumeTiming();
  }
  const auto bytes = static_cast<std::int64_t>(sender.cycle.size()) * (kFrames / 25);
  state.SetBytesProcessed(state.iterations() * bytes);
}

}  // namespace

int main(int argc, char** argv) {
  for (const char* key : {"PROTO", "CAMERAMODEL", "MEDIA_FORMAT"}) Cfg::insert(key, "bench");
  for (const char* key : {"VSIP_TARGET_GUID", "VSIP_TARGET_SIP", "VSIP_SOURCE_GUID", "USRNAME"}) {
    Cfg::insert(key, "");
  }
  retriever();
  Log4cppWrapper::init(log4cpp::Priority::WARN);
  // Never answers the VSIP worker's request.
  const UniqueFd pages(socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof name;
  auto* generic = reinterpret_cast<sockaddr*>(&name);
  if (bind(pages.get(), generic, length) != 0 || listen(pages.get(), 4) != 0 ||
      getsockname(pages.get(), generic, &length) != 0) {
    return 1;
  }
  Cfg::insert("DEVIP", "127.0.0.1");
  Cfg::insert("HTTP_PORT", static_cast<int>(ntohs(name.sin_port)));

  struct {
    const char* name;
    const Vendor& vendor;
  } const all[] = {{"samsung", kSamsung}, {"vsip", kVsip}, {"dante", kDante}};
  for (const auto& each : all) {
    for (const bool bare : {true, false}) {
      const std::string title = std::string(each.name) + (bare ? "/bare" : "/reader");
      auto* run = benchmark::RegisterBenchmark(
          title.c_str(), [&each, bare](benchmark::State& s) { measure(s, each.vendor, bare); });
      run->Arg(1400)->Unit(benchmark::kMillisecond)->Iterations(10);
      if (each.vendor.headerSize != kDante.headerSize) run->Arg(8000);
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  _exit(0);  // the VSIP worker still runs
}
