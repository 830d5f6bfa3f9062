// A small event log service for demonstrations and tests: serves ELog over the
// bus or a broker and prints what arrives, one line an action.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <mutex>
#include <thread>

#include "ElogServices.h"
#include "TDX_Service.h"

namespace {

class Printer : public NV_TDX::ELogIf {
 public:
  void submitAction(NV_TDX::ActionResponse& result, const NV_TDX::Action& action) override {
    print("submitAction", action);
    result.parameters["status"] = "accepted";
  }
  void submitActionA(const NV_TDX::Action& action) override { print("submitActionA", action); }

 private:
  // Line ends and other control characters of a peer's come out as blanks.
  static std::string shown(std::string text) {
    for (char& c : text) {
      if (static_cast<unsigned char>(c) < ' ') c = ' ';
    }
    return text;
  }
  void print(const char* method, const NV_TDX::Action& action) {
    std::string line = std::string(method) + " " + shown(action.name);
    for (const auto& [key, value] : action.parameters)
      line += " " + shown(key) + "=\"" + shown(value) + "\"";
    const std::lock_guard<std::mutex> lock(mutex_);
    std::puts(line.c_str());
    std::fflush(stdout);
  }
  std::mutex mutex_;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Event log service that prints what arrives");
  std::string host = "localhost", user = "dummy", password = "dummy", name = "tdx.eventlog";
  int port = 10000, workers = 4;
  bool broker = false;
  app.add_option("--host", host, "bus or broker")->capture_default_str();
  app.add_option("--port", port)->capture_default_str();
  app.add_flag("--broker", broker, "serve over a message broker, not the bus");
  app.add_option("--user", user, "login at the broker");
  app.add_option("--password", password);
  app.add_option("--service", name, "service name")->capture_default_str();
  app.add_option("--workers", workers)->capture_default_str()->check(CLI::Range(1, 64));
  CLI11_PARSE(app, argc, argv);

  // Signals go to the thread that waits for them.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  signal(SIGPIPE, SIG_IGN);

  TDX_Service service(host, port, user, password,
                      broker ? TDX_Service::Transport_CMS : TDX_Service::Transport_MBUS);
  try {
    service.proto_(name);  // a server that cannot connect would end without a word of ours
    service.add_processor(name,
                          std::make_shared<NV_TDX::ELogProcessor>(std::make_shared<Printer>()));
    std::thread ender([&] {
      int number = 0;
      sigwait(&ends, &number);
      service.shutdown();
    });
    std::fprintf(stderr, "elogd: serving %s\n", name.c_str());
    service.serve(workers, nullptr);
    ender.join();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "elogd: %s:%d: %s\n", host.c_str(), port, failure.what());
    return 1;
  }
  return 0;
}
