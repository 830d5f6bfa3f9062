#include "StopControl.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "AccessLog.h"
#include "Leaving.h"

namespace host {

namespace {

sigset_t stopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

std::chrono::steady_clock::duration seconds(double value) {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(value));
}

// The signal that came, or nothing at the time limit.
std::optional<int> awaitSignal(std::chrono::steady_clock::time_point until) {
  const auto wait = std::max(until - std::chrono::steady_clock::now(), seconds(0));
  const auto nanos = std::chrono::duration_cast<std::chrono::nanoseconds>(wait).count();
  const timespec limit{nanos / 1000000000, nanos % 1000000000};
  const sigset_t signals = stopSignals();
  const int number = sigtimedwait(&signals, nullptr, &limit);
  return number > 0 ? std::optional<int>(number) : std::nullopt;
}

}  // namespace

StopControl::StopControl(const Times& times, const std::vector<Ticking*>& ticking,
                         std::function<void(const char*)> stop)
    : times_(times), stop_(std::move(stop)) {
  for (Ticking* each : ticking) ticks_.push_back({each, Clock::now() + each->interval()});
}

void StopControl::blockSignals() {
  const sigset_t signals = stopSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void StopControl::start() {
  if (times_.durationSeconds) durationEnd_ = Clock::now() + seconds(*times_.durationSeconds);
  // Runs until the process ends.
  std::thread([this] { run(); }).detach();
}

void StopControl::run() {
  for (;;) {
    Clock::time_point next = Clock::time_point::max();
    for (const Tick& each : ticks_) next = std::min(next, each.next);
    if (durationEnd_) next = std::min(next, *durationEnd_);
    if (graceEnd_ && !ended_.load()) next = std::min(next, *graceEnd_);
    if (const auto number = awaitSignal(next)) onSignal(*number);

    const Clock::time_point now = Clock::now();
    if (durationEnd_ && now >= *durationEnd_) askToStop("duration");
    if (graceEnd_ && now >= *graceEnd_ && !ended_.load()) {
      LOG_WARN("The stream has not ended within %g s of the stop, leaving without it",
               times_.graceSeconds);
      leave(0);
    }
    tick(now);
  }
}

void StopControl::tick(Clock::time_point now) {
  for (Tick& each : ticks_) {
    if (now < each.next) continue;
    each.what->tick();
    each.next = now + each.what->interval();
  }
}

void StopControl::onSignal(int number) {
  if (graceEnd_) _exit(128 + number);  // the second one: at once
  askToStop("signal");
}

void StopControl::askToStop(const char* reason) {
  durationEnd_.reset();
  if (graceEnd_) return;
  graceEnd_ = Clock::now() + seconds(times_.graceSeconds);
  stop_(reason);
}

}  // namespace host
