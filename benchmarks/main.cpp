// The units next to their floors and peers. scripts/bench.sh makes a table of what this prints.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <exception>
#include <iostream>

#include "benchmarks/Units.h"

namespace BrimletBench {
namespace {

void AddAll() {
  AddValidators();
  AddVerifyCmds();
  AddSplit();
  AddLogger();
  AddIniParser();
  AddRandomCode();
  AddFileOperator();
  AddDirOperator();
  AddBoundsChecked();
}

}  // namespace
}  // namespace BrimletBench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  try {
    BrimletBench::AddAll();
    benchmark::RunSpecifiedBenchmarks();
  } catch (const std::exception& error) {
    std::cerr << "units: not as it has to be: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
  benchmark::Shutdown();
}
