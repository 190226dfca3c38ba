// How long it takes to remove a folder, next to the standard library. It lies in the working
// folder.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "common/Singleton.h"
#include "storage/DirOperator.h"

namespace {

using benchmark::State;

void MakeTree(State& state) {
  std::filesystem::create_directory("tree");
  for (int i = 0; i < state.range(0); ++i) {
    std::ofstream("tree/file" + std::to_string(i));
  }
}

void RemoveDir(State& state) {
  MakeTree(state);
  for (auto _ : state) {
    Velmar::SingletonNew<Velmar::DirOperator>::GetInstance().RemoveDir("tree");
  }
  if (std::filesystem::exists("tree")) {
    state.SkipWithError("not removed");
  }
}
BENCHMARK(RemoveDir)->Arg(10000)->Iterations(1)->UseRealTime();

void RemoveDir_filesystem(State& state) {
  MakeTree(state);
  for (auto _ : state) {
    std::filesystem::remove_all("tree");
  }
}
BENCHMARK(RemoveDir_filesystem)->Arg(10000)->Iterations(1)->UseRealTime();

}  // namespace
