#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace host {

// Something that wants to be called now and then.
class Ticking {
 public:
  virtual ~Ticking() = default;
  virtual std::chrono::milliseconds interval() const = 0;
  virtual void tick() = 0;  // on the stop control's thread
};

// The thread that asks the stream to stop, at a signal or after the wanted
// duration, and that ends the process when the stream does not come to its end
// within the grace. What wants to tick ticks here too.
class StopControl {
 public:
  struct Times {
    std::optional<double> durationSeconds;
    double graceSeconds;
  };
  // `stop` sets the stop flag; its argument is the reason, "signal" or "duration".
  // Those of `ticking` are not owned.
  StopControl(const Times& times, const std::vector<Ticking*>& ticking,
              std::function<void(const char*)> stop);

  // For all threads to come; ahead of the first one. Signals thus never
  // interrupt a blocked read of the module.
  static void blockSignals();

  void start();
  // start() of the producer has returned: the grace does not matter any more.
  void streamEnded() { ended_.store(true); }

 private:
  using Clock = std::chrono::steady_clock;
  void run();
  void tick(Clock::time_point now);
  void onSignal(int number);
  void askToStop(const char* reason);

  Times times_;
  struct Tick {
    Ticking* what;
    Clock::time_point next;
  };
  std::vector<Tick> ticks_;
  std::function<void(const char*)> stop_;
  std::optional<Clock::time_point> durationEnd_;
  std::optional<Clock::time_point> graceEnd_;  // set once the stream was asked to stop
  std::atomic<bool> ended_{false};
};

}  // namespace host
