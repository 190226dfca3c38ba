// The entry of brimletd. Takes no arguments.

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include "common/Logger.h"
#include "common/Singleton.h"
#include "daemon/BusService.h"
#include "storage/DirOperator.h"

namespace {

constexpr const char* kLogFileName = "/brimletd.log";

// Opens /dev/null on each of the descriptors 0 to 2 that is closed: otherwise the log or the bus
// connection would get its number, and every command would inherit it as its standard input, output
// or error.
bool OpenStandardDescriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    const bool isClosed = fcntl(fd, F_GETFD) < 0;
    // The lowest number that is free is the one taken.
    if (isClosed && open("/dev/null", O_RDWR) != fd) {
      return false;
    }
  }
  return true;
}

// Commands inherit nothing of what the parent process left open.
void CloseOthersOnExec() {
  constexpr int kFirst = STDERR_FILENO + 1;
  if (close_range(kFirst, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
    return;
  }
  // Kernels before 5.11.
  const std::unique_ptr<DIR, int (*)(DIR*)> list(opendir("/proc/self/fd"), closedir);
  if (!list) {
    return;
  }
  // cppcheck-suppress readdirCalled
  while (const dirent* const entry = readdir(list.get())) {
    const int fd = std::atoi(entry->d_name);  // NOLINT(cert-err34-c): the kernel's
    if (fd >= kFirst) {
      fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
  }
}

// Whether the launcher decides about a signal: a daemon under nohup(1) lives on, and who limits the
// size of files also says whether the log may end the daemon at that limit.
bool IsLaunchersChoice(int signal) {
  return signal == SIGHUP || signal == SIGINT || signal == SIGQUIT || signal == SIGXFSZ;
}

// Undoes what else the parent process ignores or blocks, so that commands start as from a shell.
void ResetSignals() {
  for (int number = 1; number < NSIG; ++number) {
    if (!IsLaunchersChoice(number)) {
      signal(number, SIG_DFL);
    }
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

int main() {
  ResetSignals();
  if (!OpenStandardDescriptors()) {
    return EXIT_FAILURE;
  }
  CloseOthersOnExec();
  const std::string logDir = Velmar::SingletonNew<Velmar::DirOperator>::GetInstance().GetLogDir();
  if (logDir.empty()) {
    return EXIT_FAILURE;
  }
  if (auto* const logger = Velmar::Singleton<Velmar::Logger>::Instance()) {
    logger->Init(logDir + kLogFileName);
  }
  return Velmar::RunBusService();
}
