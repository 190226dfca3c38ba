// How long the daemon takes from a caller's side, next to a bus service that only calls popen, and
// to what else runs a command as root. Runs as the casting engine, an ordinary user's process, on
// the machine that end_to_end.py makes, and takes the options of Google Benchmark. The daemon's
// process id stands in the environment, as BRIMLETD_PID.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/Logger.h"
#include "utils/BrimletdClient.h"

namespace {

using benchmark::State;
using std::chrono::steady_clock;

const std::string kTrivial = "echo --add";
const std::string kRefused = "echo --nope";
const std::string kRefusal = "ExecutePopen failed!";
// Word 0 does all the work. The files hold 100 kB.
const std::string kOneLine = "cat${IFS}/opt/one_line;: --add";
const std::string kByteLines = "cat${IFS}/opt/byte_lines;: --add";
constexpr std::size_t kOutput = 99999;  // the daemon takes off the last line feed

std::string Call(const std::string& line) {
  std::string result;
  std::string error;
  Velmar::Utils::ExecuteByBrimletd(line, result, error);
  return result + error;
}

// As the daemon's own client does it, but for asking who has replied.
std::string CallPopen(const char* method, const std::string& line) {
  sd_bus* bus = nullptr;
  sd_bus_message* reply = nullptr;
  const char* text = "no reply";
  if (sd_bus_open_system(&bus) >= 0 &&
      sd_bus_call_method(bus, "brimlet.Popen", "/", "brimlet.Popen", method, nullptr, &reply, "s",
                         line.c_str()) >= 0) {
    sd_bus_message_read(reply, "s", &text);
  }
  const std::string result = text;
  sd_bus_message_unref(reply);
  sd_bus_flush_close_unref(bus);
  return result;
}

// Runs a program to its end, without a shell, and returns all that it prints.
std::string RunProgram(const std::vector<const char*>& command) {
  std::array<int, 2> ends{};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  pid_t pid = -1;
  std::string output;
  if (pipe2(ends.data(), O_CLOEXEC) == 0) {
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    posix_spawnp(&pid, command[0], &actions, nullptr, const_cast<char**>(command.data()), environ);
    close(ends[1]);
    std::array<char, 1024> piece;
    for (ssize_t got = 0; (got = read(ends[0], piece.data(), piece.size())) > 0;) {
      output.append(piece.data(), static_cast<std::size_t>(got));
    }
    close(ends[0]);
    waitpid(pid, nullptr, 0);
  }
  posix_spawn_file_actions_destroy(&actions);
  return output;
}

template <typename Work>
void Repeat(State& state, const std::string& expected, const Work& work) {
  for (auto _ : state) {
    const std::string reply = work();
    if (reply != expected) {
      state.SkipWithError(("unexpected reply: " + reply.substr(0, 100)).c_str());
      break;
    }
  }
}

// The longest that a line of 20 MB takes to be refused, whatever byte it consists of. Above 127 a
// byte alone is no text to the bus.
void LongLine(State& state) {
  for (auto _ : state) {
    double longest = 0;
    for (char byte = 1; byte > 0 && byte < 127; ++byte) {
      const std::string line = "x --unblock " + std::string(20'000'000, byte);
      const auto start = steady_clock::now();
      if (Call(line) != kRefusal) {
        state.SkipWithError("not refused");
      }
      const std::chrono::duration<double> time = steady_clock::now() - start;
      longest = std::max(longest, time.count());
    }
    state.SetIterationTime(longest);
  }
}
BENCHMARK(LongLine)->Iterations(1)->Repetitions(1)->UseManualTime();

void Brimletd(State& state, const std::string& line, const std::string& expected) {
  Repeat(state, expected, [&] { return Call(line); });
}
void Popen(State& state, const std::string& line, const std::string& expected) {
  Repeat(state, expected, [&] { return CallPopen("Run", line); });
}
void Refuse(State& state) {
  Repeat(state, kRefusal, [] { return CallPopen("Refuse", kRefused); });
}
void Spawn(State& state, const std::vector<const char*>& command) {
  Repeat(state, "--add\n", [&] { return RunProgram(command); });
}

#define MEASURE(name, function, ...) \
  BENCHMARK_CAPTURE(function, name, __VA_ARGS__)->Name(#name)->UseRealTime()->Iterations(1)

MEASURE(Trivial, Brimletd, kTrivial, "--add");
MEASURE(Trivial_popen, Popen, kTrivial, "--add");
MEASURE(Trivial_doas, Spawn, {"doas", "-n", "sh", "-c", "echo --add", nullptr});
MEASURE(Trivial_sudo, Spawn, {"sudo", "-n", "sh", "-c", "echo --add", nullptr});
MEASURE(Trivial_pkexec, Spawn, {"pkexec", "sh", "-c", "echo --add", nullptr});
MEASURE(Refused, Brimletd, kRefused, kRefusal);
BENCHMARK(Refuse)->Name("Refused_popen")->UseRealTime()->Iterations(1);
MEASURE(Callers, Brimletd, kTrivial, "--add")->Threads(16)->Iterations(2);
MEASURE(Callers_popen, Popen, kTrivial, "--add")->Threads(16)->Iterations(2);
MEASURE(OneLine, Brimletd, kOneLine, std::string(kOutput, 'x'));
MEASURE(OneLine_popen, Popen, kOneLine, std::string(kOutput, 'x'));
MEASURE(ByteLines, Brimletd, kByteLines, std::string(kOutput, '\n'));
MEASURE(ByteLines_popen, Popen, kByteLines, std::string(kOutput, '\n'));

}  // namespace

int main(int argc, char** argv) {
  Velmar::Singleton<Velmar::Logger>::Instance();  // before several threads log
  const char* const pid = std::getenv("BRIMLETD_PID");
  Velmar::Utils::SetBrimletdPid(pid == nullptr ? 0 : std::atoi(pid));
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
