// Side-by-side timing for a shared machine. One benchmark runs the library's
// operation and its peers' in every iteration, one after the other, the
// order rotating from one iteration to the next, each timed on the thread's
// CPU clock. Whatever the machine is doing meets all of them alike, so the
// ratio of their times holds even when the times themselves wander.
//
// Counters, per repetition (the run's medians are taken across repetitions):
//   <name>_ns       CPU time of one call of each contestant
//   ratio_<name>    the first contestant's time over this one's
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <functional>
#include <string>
#include <vector>

namespace kel::bench {

// Accumulates the thread's CPU time between Start and Stop; a contestant
// starts and stops it around exactly what is measured, leaving its set-up
// and clean-up out.
class CpuTimer {
 public:
  void Start() { started_ = Now(); }
  void Stop() { total_ += Now() - started_; }
  [[nodiscard]] double TotalNs() const { return total_; }

 private:
  static double Now() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
  }
  double started_ = 0;
  double total_ = 0;
};

struct Contestant {
  std::string name;
  // Makes `calls` calls between one Start and one Stop of the timer.
  std::function<void(CpuTimer&)> run;
};

// `calls` is how many calls of the operation one run of a contestant makes
// (a batch, for operations too short to time one by one).
inline void Contest(benchmark::State& state, double calls, std::vector<Contestant> contestants) {
  std::vector<CpuTimer> timers(contestants.size());
  std::size_t round = 0;
  for (auto _ : state) {
    for (std::size_t k = 0; k < contestants.size(); ++k) {
      const std::size_t who = (round + k) % contestants.size();
      contestants[who].run(timers[who]);
    }
    ++round;
  }
  const double perCall = static_cast<double>(round) * calls;
  for (std::size_t k = 0; k < contestants.size(); ++k) {
    state.counters[contestants[k].name + "_ns"] = timers[k].TotalNs() / perCall;
    if (k > 0) state.counters["ratio_" + contestants[k].name] = timers[0].TotalNs() / timers[k].TotalNs();
  }
}

}  // namespace kel::bench
