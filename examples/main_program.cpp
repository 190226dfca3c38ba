// A sample of the application's main program: starts the daemon, sends it each line of standard
// input as a command line, prints the replies, and stops the daemon at the end of the input.
//
//   Brimlet DAEMON
//
// The daemon accepts it as its parent and as a caller only at the main program's installed path.
// The exit status is the daemon's.

#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

namespace {

constexpr const char* kName = "com.tolvane.brimlet";
constexpr const char* kPath = "/com/tolvane/brimlet";
constexpr const char* kMethod = "brimletd";
constexpr int kStartTries = 100;
constexpr useconds_t kStartPauseUsec = 50000;

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using UniqueBus = std::unique_ptr<sd_bus, BusCloser>;

UniqueBus OpenSystemBus() {
  sd_bus* bus = nullptr;
  sd_bus_open_system(&bus);
  return UniqueBus(bus);
}

pid_t StartDaemon(char* path) {
  char* arguments[] = {path, nullptr};
  pid_t pid = -1;
  return posix_spawn(&pid, path, nullptr, nullptr, arguments, environ) == 0 ? pid : -1;
}

bool HasName(sd_bus* bus) { return sd_bus_get_name_creds(bus, kName, 0, nullptr) >= 0; }

bool HasEnded(pid_t pid) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == pid;
}

// The daemon exports its method before it takes its name.
bool WaitUntilReady(sd_bus* bus, pid_t daemon) {
  for (int i = 0; i < kStartTries; ++i) {
    if (HasName(bus)) {
      return true;
    }
    if (HasEnded(daemon)) {
      return false;
    }
    usleep(kStartPauseUsec);
  }
  return false;
}

std::string Call(sd_bus* bus, const std::string& line) {
  sd_bus_error error{};
  sd_bus_message* reply = nullptr;
  std::string text;
  const char* result = nullptr;
  if (sd_bus_call_method(bus, kName, kPath, kName, kMethod, &error, &reply, "s", line.c_str()) >=
          0 &&
      sd_bus_message_read(reply, "s", &result) >= 0) {
    text = result;
  } else {
    text = std::string("no reply: ") + (error.message != nullptr ? error.message : "unreadable");
  }
  sd_bus_error_free(&error);
  sd_bus_message_unref(reply);
  return text;
}

int WaitForEnd(pid_t daemon) {
  int status = 0;
  while (waitpid(daemon, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status)) {
    std::cout << "brimletd ended by signal " << WTERMSIG(status) << std::endl;
    return EXIT_FAILURE;
  }
  std::cout << "brimletd ended with exit status " << WEXITSTATUS(status) << std::endl;
  return WEXITSTATUS(status);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: " << argv[0] << " DAEMON\n";
    return EXIT_FAILURE;
  }
  const pid_t daemon = StartDaemon(argv[1]);
  if (daemon < 0) {
    std::cerr << "cannot start " << argv[1] << '\n';
    return EXIT_FAILURE;
  }
  std::cout << "brimletd runs as process " << daemon << std::endl;
  const UniqueBus bus = OpenSystemBus();
  if (bus && WaitUntilReady(bus.get(), daemon)) {
    std::cout << "ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
      std::cout << Call(bus.get(), line) << std::endl;
    }
    Call(bus.get(), "brimletd --exit");
  }
  return WaitForEnd(daemon);
}
