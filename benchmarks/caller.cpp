// How long the daemon takes from a caller's side, next to a bus service that only calls popen, and
// to what else runs a command as root. Runs as the casting engine on the machine that end_to_end.py
// makes; the daemon's process id stands in the environment as BRIMLETD_PID.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/Logger.h"
#include "utils/BrimletdClient.h"

namespace {

using benchmark::State;

// Word 0 does the work of the last two. Their files hold 100 kB; the daemon takes off the last line
// feed of an output.
constexpr const char* kTrivial = "echo --add";
constexpr const char* kRefused = "echo --nope";
constexpr const char* kOneLine = "cat${IFS}/opt/one_line;: --add";
constexpr const char* kByteLines = "cat${IFS}/opt/byte_lines;: --add";
constexpr const char* kRefusal = "ExecutePopen failed!";
constexpr int kOutput = 99999;

std::string Call(const std::string& line) {
  std::string result;
  std::string error;
  Velmar::Utils::ExecuteByBrimletd(line, result, error);
  return result + error;
}

// As the daemon's own client does it, but for asking who has replied.
std::string CallPopen(const char* line, const char* method) {
  sd_bus* bus = nullptr;
  sd_bus_message* reply = nullptr;
  const char* text = "no reply";
  if (sd_bus_open_system(&bus) >= 0 &&
      sd_bus_call_method(bus, "brimlet.Popen", "/", "brimlet.Popen", method, nullptr, &reply, "s",
                         line) >= 0) {
    sd_bus_message_read(reply, "s", &text);
  }
  std::string result = text;
  sd_bus_message_unref(reply);
  sd_bus_flush_close_unref(bus);
  return result;
}

// Runs a program without a shell and returns what it prints.
std::string Spawn(const std::vector<const char*>& command) {
  std::array<int, 2> ends{};
  std::array<char, 100> output{};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  pid_t pid = -1;
  if (pipe2(ends.data(), O_CLOEXEC) == 0 &&
      posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO) == 0) {
    posix_spawnp(&pid, command[0], &actions, nullptr, const_cast<char**>(command.data()), environ);
    close(ends[1]);
    while (read(ends[0], output.data(), output.size()) > 0) {
    }
    close(ends[0]);
    waitpid(pid, nullptr, 0);
  }
  posix_spawn_file_actions_destroy(&actions);
  return output.data();
}

template <typename Work>
void Repeat(State& state, const std::string& expected, const Work& work) {
  std::string reply;
  for (auto _ : state) {
    reply = work();
  }
  if (reply != expected) {
    state.SkipWithError(("unexpected: " + reply.substr(0, 100)).c_str());
  }
}

// The first call is not measured: whatever ran before has left the caches full of its own.
void Daemon(State& state, const char* line, const std::string& reply) {
  Call(line);
  Repeat(state, reply, [&] { return Call(line); });
}
void Popen(State& state, const char* line, const std::string& reply, const char* method = "Run") {
  CallPopen(line, method);
  Repeat(state, reply, [&] { return CallPopen(line, method); });
}
void Peer(State& state, const std::vector<const char*>& command) {
  Spawn(command);
  Repeat(state, "--add\n", [&] { return Spawn(command); });
}
#define MEASURE(name, function, ...) \
  BENCHMARK_CAPTURE(function, name, __VA_ARGS__)->Name(#name)->UseRealTime()->Iterations(1)

MEASURE(Trivial, Daemon, kTrivial, "--add");
MEASURE(Trivial_popen, Popen, kTrivial, "--add");
MEASURE(Trivial_doas, Peer, {"doas", "-n", "sh", "-c", kTrivial, nullptr});
MEASURE(Trivial_sudo, Peer, {"sudo", "-n", "sh", "-c", kTrivial, nullptr});
MEASURE(Trivial_pkexec, Peer, {"pkexec", "sh", "-c", kTrivial, nullptr});
MEASURE(Refused, Daemon, kRefused, kRefusal);
MEASURE(Refused_popen, Popen, kRefused, kRefusal, "Refuse");
MEASURE(Callers, Daemon, kTrivial, "--add")->Threads(16)->Iterations(2);
MEASURE(Callers_popen, Popen, kTrivial, "--add")->Threads(16)->Iterations(2);
MEASURE(OneLine, Daemon, kOneLine, std::string(kOutput, 'x'));
MEASURE(OneLine_popen, Popen, kOneLine, std::string(kOutput, 'x'));
MEASURE(ByteLines, Daemon, kByteLines, std::string(kOutput, '\n'));
MEASURE(ByteLines_popen, Popen, kByteLines, std::string(kOutput, '\n'));

// 20 MB of each byte that may stand alone in a text on the bus.
void LongLine(State& state) {
  const std::string bytes(20'000'000, static_cast<char>(state.range(0)));
  Repeat(state, kRefusal, [&] { return Call("x --unblock " + bytes); });
}
BENCHMARK(LongLine)->DenseRange(1, 63)->Iterations(1)->Repetitions(1)->UseRealTime();
BENCHMARK(LongLine)->DenseRange(64, 127)->Iterations(1)->Repetitions(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  Velmar::Singleton<Velmar::Logger>::Instance();  // before several threads log
  Velmar::Utils::SetBrimletdPid(std::stoi(std::getenv("BRIMLETD_PID")));
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
