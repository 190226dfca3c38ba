#include "benchmarks/end_to_end_contenders.h"

#include <sys/wait.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/PrivateMachine.h"
#include "utils/BrimletdClient.h"

namespace BrimletBench {
namespace {

using Clock = std::chrono::steady_clock;

void Expect(const std::string& expected, const std::string& reply) {
  if (reply != expected) {
    throw std::runtime_error("unexpected reply: " + reply.substr(0, 100));
  }
}

bool HasEnded(pid_t child) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == child;
}

}  // namespace

void CallHelper(const Request& request) {
  std::string result;
  std::string error;
  Velmar::Utils::ExecuteByBrimletd(request.line, result, error);
  Expect(request.reply, result + error);
}

void CallFloor(const Request& request, const std::string& name) {
  sd_bus* bus = nullptr;
  sd_bus_message* reply = nullptr;
  const char* text = "none";
  if (sd_bus_open_system(&bus) >= 0 &&
      sd_bus_call_method(bus, name.c_str(), "/floor", "brimlet.Floor", request.floorMethod, nullptr,
                         &reply, "s", request.line.c_str()) >= 0) {
    sd_bus_message_read(reply, "s", &text);
  }
  const std::string result = text;
  sd_bus_message_unref(reply);
  sd_bus_flush_close_unref(bus);
  Expect(request.reply, result);
}

void WaitForName(const std::string& name, pid_t owner) {
  sd_bus* bus = nullptr;
  BrimletTest::Require(sd_bus_open_system(&bus) >= 0, "open the bus");
  bool isThere = false;
  BrimletTest::Eventually([&] {
    isThere = sd_bus_get_name_creds(bus, name.c_str(), 0, nullptr) >= 0;
    return isThere || HasEnded(owner);
  });
  sd_bus_flush_close_unref(bus);
  if (!isThere) {
    throw std::runtime_error("it does not come to the bus");
  }
}

double Measure(const std::function<void()>& work) {
  const Clock::time_point start = Clock::now();
  work();
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double MeasureRate(int callers, std::chrono::milliseconds time, const std::function<void()>& work) {
  std::atomic<std::uint64_t> done = 0;
  const Clock::time_point start = Clock::now();
  const double elapsed = Measure([&] {
    std::vector<std::jthread> threads;
    threads.reserve(static_cast<std::size_t>(callers));
    for (int i = 0; i < callers; ++i) {
      threads.emplace_back([&] {
        while (Clock::now() - start < time) {
          work();
          ++done;
        }
      });
    }
  });
  return static_cast<double>(done) * 1e6 / elapsed;
}

}  // namespace BrimletBench
