#include "benchmarks/Line.h"

#include <chrono>
#include <sstream>
#include <stdexcept>

#include "benchmarks/Allocations.h"

namespace BrimletBench {

Line::Line(std::string name, Run ours, Setting setting)
    : mName(std::move(name)), mSetting(std::move(setting)) {
  Register("brimlet", std::nullopt, std::move(ours));
}

Line& Line::Floor(double bound, Run run) {
  Register("floor", bound, std::move(run));
  return *this;
}

Line& Line::Peer(const std::string& name, std::optional<double> bound, Run run) {
  Register(name, bound, std::move(run));
  return *this;
}

Line& Line::Count(const std::string& what, double bound, Run run) {
  Register("#" + what, bound, std::move(run));
  return *this;
}

void Line::Register(const std::string& who, std::optional<double> bound, Run run) {
  std::ostringstream name;
  name << mName << '|' << who << '|';
  if (bound) {
    name << *bound;
  }
  auto* const benchmark = benchmark::RegisterBenchmark(name.str().c_str(), std::move(run));
  if (mSetting) {
    mSetting(*benchmark);
  }
}

Run RepeatPrepared(std::function<void()> prepare, std::function<void()> work) {
  return [prepare = std::move(prepare), work = std::move(work)](benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    for ([[maybe_unused]] auto _ : state) {
      prepare();
      const Clock::time_point start = Clock::now();
      work();
      state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
  };
}

void UseManualTime(benchmark::internal::Benchmark& benchmark) {
  benchmark.UseManualTime()->Iterations(1);
}

Run CountingAllocations(Run run) {
  return [run = std::move(run)](benchmark::State& state) {
    const std::int64_t before = CountAllocations();
    run(state);
    const std::int64_t count = CountAllocations() - before;
    state.counters["count"] = static_cast<double>(count) / static_cast<double>(state.iterations());
  };
}

void Require(bool condition, const char* what) {
  if (!condition) {
    throw std::logic_error(what);
  }
}

}  // namespace BrimletBench
