// A line of the table of benchmarks: one piece of work, done by this tree, by the least code that
// gives the same result (the floor), and by what a user would take instead (a peer).
//
//   Line("IsWord, 5 B", Repeat(word, IsWord))
//       .Floor(1.5, Repeat(word, LeastCode))
//       .Peer("RE2", 0.2, Repeat(word, ByPattern));
//
// The numbers are the bounds: this tree is to take at most 1.5 times as long as the floor and 0.2
// times as long as RE2. They are part of the name under which a benchmark is registered,
// "line|who|bound", and table.py makes the table of them.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace BrimletBench {

using Run = std::function<void(benchmark::State&)>;

class Line {
 public:
  // What is set for each benchmark of the line.
  using Setting = std::function<void(benchmark::internal::Benchmark&)>;

  Line(std::string name, Run ours, Setting setting = {});

  Line& Floor(double bound, Run run);
  // Without a bound it is only shown.
  Line& Peer(const std::string& name, std::optional<double> bound, Run run);
  // Not a time: the counter "count" of the run is not to be above the bound.
  Line& Count(const std::string& what, double bound, Run run);

 private:
  void Register(const std::string& who, std::optional<double> bound, Run run);

  std::string mName;
  Setting mSetting;
};

// A function as an object, so that the compiler sees which one is called and may put it in place.
template <auto Function>
struct Direct {
  template <typename... Arguments>
  decltype(auto) operator()(Arguments&&... arguments) const {
    return Function(std::forward<Arguments>(arguments)...);
  }
};

// Does a piece of work again and again, on an input of which the compiler knows nothing.
template <typename Input, typename Work>
Run Repeat(Input input, Work work) {
  return [input = std::move(input), work](benchmark::State& state) mutable {
    for ([[maybe_unused]] auto _ : state) {
      benchmark::DoNotOptimize(input);
      benchmark::DoNotOptimize(work(input));
    }
  };
}

// The same for work on which something has to be made ready each time, which does not count.
Run RepeatPrepared(std::function<void()> prepare, std::function<void()> work);
// The setting for it.
void UseManualTime(benchmark::internal::Benchmark& benchmark);

// Counts how often an iteration takes memory with new.
Run CountingAllocations(Run run);

// Ends the program when the condition does not hold: a floor that gives another result is none.
void Require(bool condition, const char* what);

}  // namespace BrimletBench
