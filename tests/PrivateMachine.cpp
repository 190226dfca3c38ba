#include "tests/PrivateMachine.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/Support.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

std::vector<char*> PointersTo(Command& command) {
  std::vector<char*> pointers;
  for (std::string& word : command) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

void EnterNamespace() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  // Root may lack the right in a container, and an ordinary user always does.
  if (user != 0 || unshare(CLONE_NEWNS) != 0) {
    Require(unshare(CLONE_NEWNS | CLONE_NEWUSER) == 0, "unshare");
    WriteWhole("/proc/self/setgroups", "deny");
    WriteWhole("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    WriteWhole("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  }
  Require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "make / private");
  Require(mount("brimlet-test", "/opt", "tmpfs", 0, "mode=0755") == 0, "mount /opt");
}

// Installs an open file, which the private file system may have hidden.
void Install(int fd, const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
  fs::copy_file("/proc/self/fd/" + std::to_string(fd), path);
  fs::permissions(path, fs::perms(0755));
}

}  // namespace

void Require(bool condition, const std::string& what) {
  if (!condition) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
  }
}

void BecomeCore(char** arguments, const std::vector<InstalledFile>& files) {
  std::vector<int> opened = {open("/proc/self/exe", O_RDONLY | O_CLOEXEC)};
  for (const InstalledFile& file : files) {
    opened.push_back(open(file.source, O_RDONLY | O_CLOEXEC));
  }
  EnterNamespace();
  Install(opened[0], kCorePath);
  for (std::size_t i = 0; i < files.size(); ++i) {
    Install(opened[i + 1], files[i].path);
  }
  fs::create_directory("/opt/tmp");
  setenv("TMPDIR", "/opt/tmp", 1);
  execv(kCorePath.c_str(), arguments);
  Require(false, "exec " + kCorePath);
}

bool Eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return condition();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

Process::Process(const Command& command) {
  int input[2];
  int output[2];
  Require(pipe2(input, O_CLOEXEC) == 0 && pipe2(output, O_CLOEXEC) == 0, "pipe");
  Command words = command;
  const std::vector<char*> arguments = PointersTo(words);
  mPid = fork();
  Require(mPid >= 0, "fork");
  if (mPid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(input[0], STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(input[0]);
  close(output[1]);
  mInput.reset(fdopen(input[1], "w"));
  mOutput.reset(fdopen(output[0], "r"));
}

Process::~Process() { Kill(); }

std::string Process::ReadLine() {
  std::string line;
  for (int c = getc(mOutput.get()); c != EOF && c != '\n'; c = getc(mOutput.get())) {
    line += static_cast<char>(c);
  }
  return line;
}

std::string Process::ReadAll() {
  std::string all;
  for (int c = getc(mOutput.get()); c != EOF; c = getc(mOutput.get())) {
    all += static_cast<char>(c);
  }
  return all;
}

void Process::WriteLine(const std::string& line) {
  std::fprintf(mInput.get(), "%s\n", line.c_str());
  std::fflush(mInput.get());
}

void Process::Kill() {
  if (mPid > 0) {
    kill(mPid, SIGKILL);
    WaitFor(std::exchange(mPid, -1));
  }
}

std::optional<int> Process::Wait() {
  const std::optional<int> status = WaitFor(mPid);
  if (status) {
    mPid = -1;
  }
  return status;
}

std::string RunAndRead(const Command& command) { return Process(command).ReadAll(); }

std::optional<int> WaitFor(pid_t pid) {
  int status = 0;
  if (!Eventually([&] { return waitpid(pid, &status, WNOHANG) != 0; })) {
    return std::nullopt;
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

Daemon::Daemon(const std::string& program) : mMain({kMainPath, program}) {
  const std::string started = mMain.ReadLine();
  Require(started.starts_with("brimletd runs as process "), "start " + program + ": " + started);
  mPid = std::stoi(started.substr(started.rfind(' ')));
  Require(mMain.ReadLine() == "ready", "wait for " + program);
}

Daemon::~Daemon() {
  if (mMain.Pid() < 0) {
    return;
  }
  mMain.CloseInput();
  if (!mMain.Wait()) {
    kill(mPid, SIGKILL);
  }
}

std::optional<int> Daemon::WaitForEnd() {
  const bool hasEnded = Eventually([&] {
    std::ifstream stat("/proc/" + std::to_string(mPid) + "/stat");
    Lines fields(3);  // process id, name, state
    return !(stat >> fields[0] >> fields[1] >> fields[2]) || fields[2] == "Z";
  });
  if (!hasEnded) {
    return std::nullopt;
  }
  mMain.CloseInput();
  return mMain.Wait();
}

std::size_t Daemon::CountDescriptors() const {
  const fs::directory_iterator descriptors("/proc/" + std::to_string(mPid) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

std::size_t Daemon::ResidentPages() const {
  std::ifstream statm("/proc/" + std::to_string(mPid) + "/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident;
}

std::unique_ptr<Process> StartPrivateBus(const std::string& folder) {
  const std::string socket = folder + "/bus";
  // As the system bus: everybody may call, and only replies that are asked for may be sent.
  WriteWhole(folder + "/bus.conf",
             "<busconfig><type>system</type><listen>unix:path=" + socket + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/> <allow own="*"/> <allow send_type="method_call"/>
    <allow send_type="method_return" send_requested_reply="true"/>
    <allow send_type="error" send_requested_reply="true"/>
    <allow receive_type="method_call"/> <allow receive_type="method_return"/>
    <allow receive_type="error"/> <allow receive_type="signal"/>
  </policy>
</busconfig>)");
  fs::remove(socket);
  auto bus = std::make_unique<Process>(
      Command{"dbus-daemon", "--nofork", "--config-file=" + folder + "/bus.conf"});
  Require(Eventually([&] { return fs::exists(socket); }), "start a bus");
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + socket).c_str(), 1);
  return bus;
}

}  // namespace BrimletTest
