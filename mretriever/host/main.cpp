#include <signal.h>

#include <cstdio>

#include "ConfigCheck.h"
#include "Leaving.h"
#include "Log4cppWrapper.h"
#include "Program.h"

// Where the build has a leak checker, it reports here and changes the status.
extern "C" __attribute__((weak)) void __lsan_do_leak_check();  // NOLINT: its own name

namespace {

constexpr int kUsageStatus = 2;

host::Program* program = nullptr;

}  // namespace

int main(int argc, char** argv) {
  try {
    const auto options = host::parseOptions(argc, argv);
    if (!options) return 0;
    if (options->checkConfig) {
      const host::ConfigReport report = host::checkConfig(options->settings);
      fputs(report.text.c_str(), stdout);
      return report.problems == 0 ? 0 : kUsageStatus;
    }
    // A failed write is seen as such.
    signal(SIGPIPE, SIG_IGN);
    host::StopControl::blockSignals();
    if (options->logCategory) Kelvane::Log4cppWrapper::init(options->logLevel);
    program = new host::Program(*options);
  } catch (const host::UsageError& problem) {
    fprintf(stderr, "mretriever: %s\n", problem.what());
    return kUsageStatus;
  }
  host::setLastWork([] { program->finish(); });
  const int status = program->run();
  // Not in leave(): a thread that ends the process in the midst of its work may
  // have dropped the last pointers to what it no longer needs.
  if (status == 0 && __lsan_do_leak_check != nullptr) __lsan_do_leak_check();
  host::leave(status);
}
