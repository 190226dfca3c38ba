#include <fcntl.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "common/Logger.h"
#include "common/UniqueFd.h"
#include "tests/Support.h"

namespace BrimletBench {
namespace {

using BrimletTest::TempFolder;
using Velmar::UniqueFd;

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr const char* kFile = "CallerAuth";
constexpr const char* kFormat = "CheckAuth path:%s failed!";
constexpr const char* kArgument = "/usr/bin/busctl";
constexpr std::size_t kLimit = 0x2000000;

const TempFolder& Folder() {
  static const TempFolder folder;
  return folder;
}

std::string LogPath() { return Folder() / "log"; }

UniqueFd OpenEmpty(const std::string& path) {
  return UniqueFd(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
}

void StartLog() {
  static_cast<void>(OpenEmpty(LogPath()));
  Velmar::Singleton<Velmar::Logger>::Instance()->Init(LogPath());
}

char* AddPair(char* at, int number) {
  *at++ = static_cast<char>('0' + number / 10);
  *at++ = static_cast<char>('0' + number % 10);
  return at;
}

char* AddTime(char* at, const timeval& now) {
  tm local{};
  localtime_r(&now.tv_sec, &local);
  at = AddPair(at, local.tm_year % 100);
  *at++ = '-';
  at = AddPair(at, local.tm_mon + 1);
  *at++ = '-';
  at = AddPair(at, local.tm_mday);
  *at++ = ' ';
  at = AddPair(at, local.tm_hour);
  *at++ = ':';
  at = AddPair(at, local.tm_min);
  *at++ = ':';
  at = AddPair(at, local.tm_sec);
  *at++ = '.';
  const int micros = static_cast<int>(now.tv_usec);
  at = AddPair(at, micros / 10000);
  at = AddPair(at, micros / 100 % 100);
  return AddPair(at, micros % 100);
}

char* AddText(char* at, std::string_view text) { return std::copy(text.begin(), text.end(), at); }

// Formats the message, and then a line, which it hands to the system at once. The lock keeps the
// lines of two threads in the order of their times. Leaves out the look at the size for the
// rotation, and what happens when a line finds no room.
[[gnu::format(printf, 6, 7)]] void LeastLine(int fd, const char* level, const char* file, int line,
                                             const char* module, const char* format, ...) {
  static std::mutex mutex;
  std::array<char, 4096> message;
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(message.data(), message.size(), format, arguments);
  va_end(arguments);
  std::array<char, 4096 + 256> text;
  char* at = text.data();
  const std::lock_guard lock(mutex);
  timeval now{};
  gettimeofday(&now, nullptr);
  *at++ = '[';
  at = AddTime(at, now);
  at = AddText(AddText(AddText(at, "] ["), level), "] [");
  at = AddText(AddText(at, file), ":");
  at = std::to_chars(at, at + 12, line).ptr;
  at = AddText(AddText(AddText(at, "] "), module), ": ");
  at = AddText(at, std::string_view(message.data(), static_cast<std::size_t>(length)));
  *at++ = '\n';
  [[maybe_unused]] const auto ignored =
      write(fd, text.data(), static_cast<std::size_t>(at - text.data()));
}

// Thread 0 makes things ready before the others start, and clears up after they have ended.
template <typename Start, typename Work>
Run ByAllThreads(Start start, Work work) {
  return [start, work](benchmark::State& state) {
    if (state.thread_index() == 0) {
      start();
    }
    for ([[maybe_unused]] auto _ : state) {
      work();
    }
  };
}

UniqueFd& LeastLog() {
  static UniqueFd fd;
  return fd;
}

std::shared_ptr<spdlog::logger>& PeerLog() {
  static std::shared_ptr<spdlog::logger> logger;
  return logger;
}

// The layout of our lines, whose "module" is its name; it keeps no source without a macro.
void StartPeerLog() {
  PeerLog() = std::make_shared<spdlog::logger>(
      kModule,
      std::make_shared<spdlog::sinks::rotating_file_sink_mt>(Folder() / "peer", kLimit, 1, true));
  PeerLog()->set_pattern("[%y-%m-%d %H:%M:%S.%f] [%l] [%s:%#] %n: %v");
  PeerLog()->flush_on(spdlog::level::trace);
}

void WriteLine() {
  Velmar::Singleton<Velmar::Logger>::Instance()->Write(Velmar::LOG_LEVEL_ERROR, kFile, 83, kModule,
                                                       kFormat, kArgument);
}

void AddWrittenLine(const std::string& name, int threads, void (*write)()) {
  const auto least = [] {
    LeastLine(LeastLog().Get(), "ERROR", kFile, 83, kModule, kFormat, kArgument);
  };
  const auto peer = [] {
    PeerLog()->log(spdlog::source_loc{kFile, 83, ""}, spdlog::level::err,
                   "CheckAuth path:{} failed!", kArgument);
  };
  const auto startLeast = [] { LeastLog() = OpenEmpty(Folder() / "floor"); };
  const auto setting = [threads](benchmark::internal::Benchmark& benchmark) {
    benchmark.Threads(threads)->UseRealTime();
    if (threads > 1) {
      benchmark.MinTime(0.05);  // the second one begins a little later
    }
  };
  Line(name, ByAllThreads(StartLog, write), setting)
      .Floor(1.4, ByAllThreads(startLeast, least))
      .Peer("spdlog", 1.05, ByAllThreads(StartPeerLog, peer));
}

// The tree's own statements of that level are gone when it is compiled. A program has LogDebug();
// and Write() for a level that is known only when it runs, which is shown without a bound.
void AddDroppedLine() {
  const auto drop = [] { Velmar::LogDebug(kModule, kFile, kFormat, kArgument); };
  const auto dropByLevel = [] {
    Velmar::Singleton<Velmar::Logger>::Instance()->Write(Velmar::LOG_LEVEL_DEBUG, kFile, 83,
                                                         kModule, kFormat, kArgument);
  };
  static spdlog::logger* peer = nullptr;
  const auto dropByPeer = [] { peer->debug("CheckAuth path:{} failed!", kArgument); };
  const auto startPeer = [] {
    StartPeerLog();
    peer = PeerLog().get();
    peer->set_level(spdlog::level::info);
  };
  Line("LogDebug, dropped", ByAllThreads(StartLog, drop))
      .Peer("spdlog", 0.3, ByAllThreads(startPeer, dropByPeer));
  Line("Logger::Write, DEBUG, dropped", ByAllThreads(StartLog, dropByLevel))
      .Peer("spdlog", std::nullopt, ByAllThreads(startPeer, dropByPeer));
}

// A log that has passed its limit by a byte.
void MakeLongLog(const std::string& path) {
  static const std::string content(kLimit + 1, 'x');
  BrimletTest::WriteWhole(path, content);
}

// Leaves out the look at what stands there, and files with holes.
void LeastRotation(int fd) {
  const std::string oldPath = Folder() / "floor.old";
  unlink(oldPath.c_str());
  const UniqueFd old(open(oldPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  off_t from = 0;
  off_t to = 0;
  while (copy_file_range(fd, &from, old.Get(), &to, kLimit + 1, 0) > 0) {
  }
  Require(to == kLimit + 1 && ftruncate(fd, 0) == 0, "copy_file_range");
  LeastLine(fd, "ERROR", kFile, 83, kModule, kFormat, kArgument);
}

void AddRotation() {
  const auto prepare = [] {
    MakeLongLog(LogPath());
    Velmar::Singleton<Velmar::Logger>::Instance()->Init(LogPath());
  };
  const auto prepareLeast = [] {
    MakeLongLog(Folder() / "floor");
    LeastLog() = UniqueFd(open((Folder() / "floor").c_str(), O_RDWR | O_APPEND | O_CLOEXEC));
  };
  Line("rotation of 32 MiB", RepeatPrepared(prepare, WriteLine), UseManualTime)
      .Floor(1.15, RepeatPrepared(prepareLeast, [] { LeastRotation(LeastLog().Get()); }));
}

}  // namespace

void AddLogger() {
  AddWrittenLine("Logger::Write, 1 thread", 1, WriteLine);
  AddWrittenLine("Logger::Write, 2 threads", 2, WriteLine);
  AddWrittenLine("LogError", 1, [] { Velmar::LogError(kModule, kFile, kFormat, kArgument); });
  AddDroppedLine();
  AddRotation();
}

}  // namespace BrimletBench
