// How long a line of the log takes, next to spdlog with the same layout, and the rotation, next to
// a copy by the standard library. The files lie in the working folder.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "common/Logger.h"

namespace {

using benchmark::State;
namespace fs = std::filesystem;

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr const char* kFile = "CallerAuth";
constexpr const char* kPath = "/usr/bin/busctl";
constexpr std::size_t kLimit = 0x2000000;

// A process without a log again afterwards: the other units are measured without.
class Log {
 public:
  Log() { mLogger->Init("log"); }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;
  ~Log() { Velmar::Singleton<Velmar::Logger>::Destroy(); }
  void Write() {
    mLogger->Write(Velmar::LOG_LEVEL_ERROR, kFile, 83, kModule, "CheckAuth path:%s failed!", kPath);
  }

 private:
  Velmar::Logger* const mLogger = Velmar::Singleton<Velmar::Logger>::Instance();
};

// A log that has passed its limit by a byte.
void MakeLongLog() { std::ofstream("log", std::ios::binary) << std::string(kLimit + 1, 'x'); }

void LogLine(State& state) {
  fs::remove("log");
  Log log;
  for (auto _ : state) {
    log.Write();
  }
}
BENCHMARK(LogLine)->UseRealTime();

// Each line goes to the system at once, as ours.
void LogLine_spdlog(State& state) {
  spdlog::logger log(
      kModule, std::make_shared<spdlog::sinks::rotating_file_sink_mt>("spdlog", kLimit, 1, true));
  log.set_pattern("[%y-%m-%d %H:%M:%S.%f] [%l] [%s:%#] %n: %v");
  log.flush_on(spdlog::level::trace);
  for (auto _ : state) {
    log.log(spdlog::source_loc{kFile, 83, ""}, spdlog::level::err, "CheckAuth path:{} failed!",
            kPath);
  }
}
BENCHMARK(LogLine_spdlog)->UseRealTime();

void Rotation(State& state) {
  MakeLongLog();
  Log log;
  for (auto _ : state) {
    log.Write();
  }
  if (fs::file_size("log.old") != kLimit + 1) {
    state.SkipWithError("not rotated");
  }
}
BENCHMARK(Rotation)->Iterations(1)->UseRealTime();

void Rotation_filesystem(State& state) {
  MakeLongLog();
  for (auto _ : state) {
    fs::remove("log.old");
    fs::copy_file("log", "log.old");
    fs::resize_file("log", 0);
  }
}
BENCHMARK(Rotation_filesystem)->Iterations(1)->UseRealTime();

}  // namespace
