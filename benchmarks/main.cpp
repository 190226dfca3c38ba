// The units next to their floors and peers. scripts/bench.sh makes a table of what this prints.
#include <benchmark/benchmark.h>

#include "benchmarks/Units.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  BrimletBench::AddValidators();
  BrimletBench::AddVerifyCmds();
  BrimletBench::AddSplit();
  BrimletBench::AddLogger();
  BrimletBench::AddIniParser();
  BrimletBench::AddRandomCode();
  BrimletBench::AddFileOperator();
  BrimletBench::AddDirOperator();
  BrimletBench::AddBoundsChecked();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
