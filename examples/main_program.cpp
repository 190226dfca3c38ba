// A sample of the application's main program: starts the daemon, sends it each line of standard
// input as a command line, prints the replies, and stops the daemon at the end of the input.
//
//   Brimlet DAEMON
//
// The daemon accepts it as its parent and as a caller only at the main program's installed path.
// The exit status is the daemon's.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

#include "utils/BrimletdClient.h"

namespace {

using Velmar::Utils::ExecuteByBrimletd;

constexpr int kStartTries = 100;
constexpr useconds_t kStartPauseUsec = 50000;

// The daemon and all of its commands inherit standard input, output and error: commands must not
// read what is meant for this program.
pid_t StartDaemon(char* path) {
  char* arguments[] = {path, nullptr};
  pid_t pid = -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  const int result = posix_spawn(&pid, path, &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  return result == 0 ? pid : -1;
}

bool HasEnded(pid_t pid) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == pid;
}

// Asks with a harmless line until this daemon, and no other that is still there, has run it.
bool WaitUntilReady(pid_t daemon) {
  std::string result;
  std::string error;
  for (int i = 0; i < kStartTries && !HasEnded(daemon); ++i) {
    if (ExecuteByBrimletd("echo --search", result, error) >= 0 && result == "--search") {
      return true;
    }
    usleep(kStartPauseUsec);
  }
  return false;
}

void Send(const std::string& line) {
  std::string result;
  std::string error;
  if (ExecuteByBrimletd(line, result, error) < 0) {
    std::cout << "no reply: " << error << std::endl;
  } else {
    std::cout << result << std::endl;
  }
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
  // From now on replies of other processes are thrown away.
  Velmar::Utils::SetBrimletdPid(daemon);
  if (WaitUntilReady(daemon)) {
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
      Send(line);
    }
    std::string result;
    std::string error;
    ExecuteByBrimletd("brimletd --exit", result, error);
  } else {
    kill(daemon, SIGTERM);
  }
  return WaitForEnd(daemon);
}
