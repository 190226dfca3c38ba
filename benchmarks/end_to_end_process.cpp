#include "benchmarks/end_to_end_process.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "tests/PrivateMachine.h"
#include "tests/Support.h"

namespace BrimletBench {
namespace {

std::string ProcFile(pid_t process, const char* name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

// The number behind `label` in a file of lines "label: number".
double NumberIn(const std::string& path, const std::string& label) {
  std::ifstream file(path);
  for (std::string word; file >> word;) {
    if (word == label) {
      double number = 0;
      file >> number;
      return number;
    }
  }
  throw std::runtime_error("no " + label + " in " + path);
}

// Traces a process from its next system call on, as long as it lives.
class Tracer {
 public:
  Tracer(pid_t process, const std::string& output)
      : mStrace(
            {"sh", "-c", "exec strace -o " + output + " -p " + std::to_string(process) + " 2>&1"}) {
    const std::string said = mStrace.ReadLine();
    if (!said.ends_with(" attached")) {
      throw std::runtime_error(said.empty() ? "strace is not installed" : said);
    }
  }
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;
  ~Tracer() {
    kill(mStrace.Pid(), SIGTERM);
    mStrace.Wait();
  }

 private:
  BrimletTest::Process mStrace;
};

// The system calls in a trace that have ended.
std::map<std::string, double> CallsIn(const std::string& trace) {
  std::map<std::string, double> calls;
  std::ifstream file(trace);
  for (std::string line; std::getline(file, line) && !file.eof();) {
    const std::size_t length = line.find('(');
    const bool isCall = length != std::string::npos && line[0] != '-' && line[0] != '+';
    if (isCall) {
      ++calls[line.substr(0, length)];
    }
  }
  return calls;
}

}  // namespace

cpu_set_t UsableProcessors() {
  cpu_set_t processors;
  BrimletTest::Require(sched_getaffinity(0, sizeof processors, &processors) == 0, "affinity");
  return processors;
}

cpu_set_t OneOf(const cpu_set_t& processors) {
  int last = CPU_SETSIZE - 1;
  while (!CPU_ISSET(last, &processors)) {
    --last;
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(last, &one);
  return one;
}

void Pin(const std::vector<pid_t>& processes, const cpu_set_t& processors) {
  for (const pid_t process : processes) {
    BrimletTest::Require(sched_setaffinity(process, sizeof processors, &processors) == 0, "pin");
  }
}

double ProcessorTime(pid_t process) {
  double nanoseconds = 0;
  std::ifstream(ProcFile(process, "schedstat")) >> nanoseconds;
  return nanoseconds / 1000;
}

double Pss(pid_t process) { return NumberIn(ProcFile(process, "smaps_rollup"), "Pss:"); }

double Sleeps(pid_t process) {
  return NumberIn(ProcFile(process, "status"), "voluntary_ctxt_switches:");
}

std::map<std::string, double> CountSystemCalls(pid_t process, int requests,
                                               const std::function<void()>& request) {
  // What the process does once the reply is sent belongs to the request.
  const auto settle = [] { std::this_thread::sleep_for(std::chrono::milliseconds(50)); };
  const BrimletTest::TempFolder folder;
  const std::string trace = folder / "trace";
  const Tracer tracer(process, trace);
  request();  // ends the wait that the tracer has interrupted
  settle();
  const std::map<std::string, double> before = CallsIn(trace);
  for (int i = 0; i < requests; ++i) {
    request();
    settle();
  }
  std::map<std::string, double> perRequest;
  for (const auto& [name, count] : CallsIn(trace)) {
    const auto known = before.find(name);
    perRequest[name] = (count - (known == before.end() ? 0 : known->second)) / requests;
  }
  return perRequest;
}

}  // namespace BrimletBench
