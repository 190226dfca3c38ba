// How long the library takes next to what a user would take instead, in the working folder.
#include <benchmark/benchmark.h>
#include <sodium.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#define SI_CONVERT_ICU  // as its package is built
#include <SimpleIni.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "common/Logger.h"
#include "common/RandomCode.h"
#include "common/Singleton.h"
#include "storage/DirOperator.h"
#include "storage/IniParser.h"

namespace {

using benchmark::State;
namespace fs = std::filesystem;

constexpr std::size_t kLimit = 0x2000000;

void MakeLog(std::size_t size) { std::ofstream("log") << std::string(size, 'x'); }

void WriteLines(State& state) {
  auto* const logger = Velmar::Singleton<Velmar::Logger>::Instance();
  logger->Init("log");
  for (auto _ : state) {
    logger->Write(Velmar::LOG_LEVEL_ERROR, "CallerAuth", 83, "ORVIX_BRIMLETD",
                  "CheckAuth path:%s failed!", "/usr/bin/busctl");
  }
}

void LogLine(State& state) {
  MakeLog(0);
  WriteLines(state);
}
BENCHMARK(LogLine)->UseRealTime();

// In the same layout, and each line goes to the system at once, too.
void LogLine_spdlog(State& state) {
  using Sink = spdlog::sinks::rotating_file_sink_mt;
  spdlog::logger logger("ORVIX_BRIMLETD", std::make_shared<Sink>("spdlog", kLimit, 1, true));
  logger.set_pattern("[%y-%m-%d %H:%M:%S.%f] [%l] [%s:%#] %n: %v");
  logger.flush_on(spdlog::level::trace);
  for (auto _ : state) {
    logger.log(spdlog::source_loc{"CallerAuth", 83, ""}, spdlog::level::err,
               "CheckAuth path:{} failed!", "/usr/bin/busctl");
  }
}
BENCHMARK(LogLine_spdlog)->UseRealTime();

void Rotation(State& state) {
  MakeLog(kLimit + 1);
  WriteLines(state);
  if (fs::file_size("log.old") != kLimit + 1) {
    state.SkipWithError("not rotated");
  }
}
BENCHMARK(Rotation)->Iterations(1)->UseRealTime();

void Rotation_filesystem(State& state) {
  MakeLog(kLimit + 1);
  for (auto _ : state) {
    fs::copy_file("log", "log.old", fs::copy_options::overwrite_existing);
    fs::resize_file("log", 0);
  }
}
BENCHMARK(Rotation_filesystem)->Iterations(1)->UseRealTime();

// Sections of twenty keys under a comment each. Comments behind values are left out: to SimpleIni
// they belong to the values.
void MakeSettings(std::int64_t size) {
  std::ofstream file("settings");
  for (int i = 0; file.tellp() < size - 64; ++i) {
    if (i % 20 == 0) {
      file << ";about section " << i << "\n[section" << i << "]\n";
    }
    file << "key_" << i << "=a value of some length\n";
  }
}

template <typename Load>
void RepeatLoad(State& state, const Load& load) {
  MakeSettings(state.range(0));
  for (auto _ : state) {
    if (!load()) {
      state.SkipWithError("not loaded");
      break;
    }
  }
}

void IniLoad(State& state) {
  RepeatLoad(state, [] { return Velmar::IniParser().Load("settings") == 0; });
}
BENCHMARK(IniLoad)->RangeMultiplier(16)->Range(4 << 10, 1 << 20);

void IniLoad_SimpleIni(State& state) {
  RepeatLoad(state, [] { return CSimpleIniCaseA().LoadFile("settings") >= 0; });
}
BENCHMARK(IniLoad_SimpleIni)->RangeMultiplier(16)->Range(4 << 10, 1 << 20);

void Password(State& state) {
  std::string password(static_cast<std::size_t>(state.range(0)), '\0');
  for (auto _ : state) {
    Velmar::RandomCode::GetRandomPasswd(password.data(), static_cast<int>(password.size()));
  }
}
BENCHMARK(Password)->Arg(16)->Arg(256);

// Asks the kernel for each character, where ours seeds its generator once.
void Password_libsodium(State& state) {
  std::string password(static_cast<std::size_t>(state.range(0)), '\0');
  for (auto _ : state) {
    for (char& c : password) {
      c = static_cast<char>('!' + randombytes_uniform(79));
    }
    benchmark::DoNotOptimize(password);
  }
}
BENCHMARK(Password_libsodium)->Arg(16)->Arg(256);

void MakeTree(State& state) {
  fs::create_directory("tree");
  for (int i = 0; i < state.range(0); ++i) {
    std::ofstream("tree/file" + std::to_string(i));
  }
}

void RemoveDir(State& state) {
  MakeTree(state);
  for (auto _ : state) {
    Velmar::SingletonNew<Velmar::DirOperator>::GetInstance().RemoveDir("tree");
  }
  if (fs::exists("tree")) {
    state.SkipWithError("not removed");
  }
}
BENCHMARK(RemoveDir)->Arg(10000)->Iterations(1)->UseRealTime();

void RemoveDir_filesystem(State& state) {
  MakeTree(state);
  for (auto _ : state) {
    fs::remove_all("tree");
  }
}
BENCHMARK(RemoveDir_filesystem)->Arg(10000)->Iterations(1)->UseRealTime();

}  // namespace
