// submitAction over the bus and over the broker, beside the same call over
// Thrift's own sockets: the round trip of one caller, and the calls a second of
// four callers at a service with four workers. Servers run on loopback.
#include <benchmark/benchmark.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TThreadPoolServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ElogServices.h"
#include "TDX_Service.h"
#include "service/Servers.h"
#include "support/Deadline.h"
#include "support/Subprocess.h"

namespace {

using namespace apache::thrift;

constexpr int kWorkers = 4;
constexpr char kName[] = "tdx.bench.elog";

NV_TDX::Action typicalAction() {
  NV_TDX::Action action;
  action.name = "create";
  action.parameters = {{"objid", "4711"},
                       {"source", "4"},
                       {"when", "1700000000"},
                       {"from", "1700000000"},
                       {"msg", "iStream device woke up"}};
  return action;
}

class Handler : public NV_TDX::ELogIf {
 public:
  void submitAction(NV_TDX::ActionResponse& result, const NV_TDX::Action&) override {
    result.parameters["status"] = "accepted";
  }
  void submitActionA(const NV_TDX::Action&) override {}
};

std::shared_ptr<TProcessor> processor() {
  return std::make_shared<NV_TDX::ELogProcessor>(std::make_shared<Handler>());
}

using Client = std::unique_ptr<NV_TDX::ELogClient>;

class Sockets {
 public:
  Sockets() {
    const auto threads = concurrency::ThreadManager::newSimpleThreadManager(kWorkers);
    threads->threadFactory(std::make_shared<concurrency::ThreadFactory>());
    threads->start();
    server_ = std::make_unique<server::TThreadPoolServer>(
        processor(), listener_, std::make_shared<transport::TBufferedTransportFactory>(),
        std::make_shared<protocol::TBinaryProtocolFactory>(), threads);
    thread_ = std::thread([this] { server_->serve(); });
  }
  ~Sockets() {
    server_->stop();
    thread_.join();
  }
  Client client() const {
    const auto socket = std::make_shared<transport::TSocket>("127.0.0.1", port_);
    const auto opened = [&socket] {
      try {
        socket->open();
        return true;
      } catch (const transport::TTransportException&) {
        return false;  // the server has only just been started
      }
    };
    if (!testsupport::eventually(opened)) std::abort();
    return std::make_unique<NV_TDX::ELogClient>(std::make_shared<protocol::TBinaryProtocol>(
        std::make_shared<transport::TBufferedTransport>(socket)));
  }

 private:
  const int port_ = testsupport::freeTcpPort();
  const std::shared_ptr<transport::TServerSocket> listener_ =
      std::make_shared<transport::TServerSocket>("127.0.0.1", port_);
  std::unique_ptr<server::TThreadPoolServer> server_;
  std::thread thread_;
};

class Served {
 public:
  Served(int port, TDX_Service::Transport_Type type)
      : service_("127.0.0.1", port, testsupport::kBrokerUser, testsupport::kBrokerPassword, type) {
    service_.add_processor(kName, processor());
    thread_ = std::thread([this] { service_.serve(kWorkers, nullptr); });
  }
  ~Served() {
    service_.shutdown();
    thread_.join();
  }
  Client client() {
    auto made = std::make_unique<NV_TDX::ELogClient>(service_.proto_(kName));
    // The first call of all may come before the service listens.
    for (int attempt = 0; attempt < 3; ++attempt) {
      try {
        NV_TDX::ActionResponse response;
        made->submitAction(response, {});
        break;
      } catch (const transport::TTransportException&) {
      }
    }
    return made;
  }

 private:
  TDX_Service service_;
  std::thread thread_;
};

class Bus {
 public:
  Client client() { return served_.client(); }

 private:
  testsupport::BusServer bus_;
  Served served_{bus_.port(), TDX_Service::Transport_MBUS};
};

class Broker {
 public:
  Client client() { return served_.client(); }

 private:
  testsupport::BrokerServer broker_;
  Served served_{broker_.port(), TDX_Service::Transport_CMS};
};

template <class Carrier>
Carrier& carrier() {
  static Carrier instance;
  return instance;
}

double microsOf(NV_TDX::ELogClient& client, const NV_TDX::Action& action) {
  NV_TDX::ActionResponse response;
  const auto start = std::chrono::steady_clock::now();
  client.submitAction(response, action);
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

template <class Carrier>
void roundTrip(benchmark::State& state) {
  const Client client = carrier<Carrier>().client();
  const NV_TDX::Action action = typicalAction();
  for (int i = 0; i < 500; ++i) microsOf(*client, action);  // a broker needs to warm up
  std::vector<double> micros;
  for ([[maybe_unused]] auto round : state) micros.push_back(microsOf(*client, action));
  std::sort(micros.begin(), micros.end());
  state.counters["median_us"] = micros[micros.size() / 2];
  state.counters["p99_us"] = micros[micros.size() * 99 / 100];
}

template <class Carrier>
void callsPerSecond(benchmark::State& state) {
  const Client client = carrier<Carrier>().client();
  const NV_TDX::Action action = typicalAction();
  for ([[maybe_unused]] auto round : state) microsOf(*client, action);
  state.SetItemsProcessed(state.iterations());
}

constexpr int kCalls = 5000;
BENCHMARK_TEMPLATE(roundTrip, Sockets)->Iterations(kCalls)->UseRealTime();
BENCHMARK_TEMPLATE(roundTrip, Bus)->Iterations(kCalls)->UseRealTime();
BENCHMARK_TEMPLATE(roundTrip, Broker)->Iterations(kCalls)->UseRealTime();
BENCHMARK_TEMPLATE(callsPerSecond, Sockets)->Iterations(kCalls)->Threads(kWorkers)->UseRealTime();
BENCHMARK_TEMPLATE(callsPerSecond, Bus)->Iterations(kCalls)->Threads(kWorkers)->UseRealTime();
BENCHMARK_TEMPLATE(callsPerSecond, Broker)->Iterations(kCalls)->Threads(kWorkers)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
