#include "tests/PrivateMachine.h"

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "tests/Support.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

const std::string kBusFolder = "/opt/bus";

std::vector<char*> PointersTo(Command& command) {
  std::vector<char*> pointers;
  for (std::string& word : command) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

// Where dbus-broker is not installed but unpacked: shows it at the place that it was built for.
// Where that cannot be, the tests find it missing.
void ShowBroker() {
  const char* const folder = IsOnBroker() ? getenv("BRIMLET_BROKER_DIR") : nullptr;
  if (folder == nullptr) {
    return;
  }
  const std::string layers = std::string("lowerdir=") + folder + ":/usr/bin";
  if (mount("brimlet-test", "/usr/bin", "overlay", 0, layers.c_str()) != 0) {
    std::cout << "cannot show " << folder << ": " << std::strerror(errno) << std::endl;
  }
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
  ShowBroker();
  Require(mount("brimlet-test", "/opt", "tmpfs", 0, "mode=0755") == 0, "mount /opt");
  Require(mount("brimlet-test", "/run", "tmpfs", 0, "mode=0755") == 0, "mount /run");
}

// The policy names a group that the machine need not have. Where it has one, the first one counts.
void AddGroup() {
  const std::string groups = "/opt/group";
  const std::string ours = BRIMLET_GROUP ":x:" + std::to_string(kMemberGroup) + ":\n";
  WriteWhole(groups, ours + ReadWhole("/etc/group"));
  Require(mount(groups.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0, "add a group");
}

// Installs an open file, which the private file system may have hidden.
void Install(int fd, const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
  fs::copy_file("/proc/self/fd/" + std::to_string(fd), path);
  fs::permissions(path, fs::perms(0755));
}

// Dbus-broker does not start without a journal, and stands still when nobody reads it.
void StartJournal() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/run/systemd/journal/socket");
  fs::create_directories("/run/systemd/journal");
  const int journal = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  Require(bind(journal, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
          "make a journal");
  const pid_t reader = fork();
  Require(reader >= 0, "fork");
  if (reader == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    char entry = 0;
    while (recv(journal, &entry, 1, 0) >= 0) {
    }
    _exit(1);
  }
  close(journal);
}

// The one that was built along, unless the environment names another: a program for another
// machine, say, wrapped into a script that starts it in an emulator.
const char* TestedDaemon() {
  const char* const other = std::getenv("BRIMLET_TESTED_DAEMON");
  return other != nullptr ? other : BRIMLET_DAEMON;
}

const std::vector<InstalledFile>& MachineFiles() {
  static const std::vector<InstalledFile> files = {
      {BRIMLET_MAIN_PROGRAM, kMainPath},
      {TestedDaemon(), kDaemonPath},
      {BRIMLET_INTERFACE_XML, kInterfacePath},
      {BRIMLET_BUS_CONF, kBusFolder + "/bus.conf"},
      {BRIMLET_BUS_POLICY, kBusFolder + "/system.d/com.tolvane.brimlet.conf"}};
  return files;
}

}  // namespace

void Require(bool condition, const std::string& what) {
  if (!condition) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
  }
}

void BecomeCore(char** arguments, const std::vector<InstalledFile>& files) {
  std::vector<InstalledFile> all = MachineFiles();
  all.push_back({"/proc/self/exe", kCorePath});
  all.insert(all.end(), files.begin(), files.end());
  std::vector<int> opened;
  opened.reserve(all.size());
  for (const InstalledFile& file : all) {
    opened.push_back(open(file.source, O_RDONLY | O_CLOEXEC));
  }
  EnterNamespace();
  // Other users have to get to the bus and to the programs.
  umask(022);
  for (std::size_t i = 0; i < all.size(); ++i) {
    Install(opened[i], all[i].path);
  }
  AddGroup();
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

bool HasOneUser() {
  std::istringstream map(ReadWhole("/proc/self/uid_map"));
  std::uint64_t first = 0;
  std::uint64_t outside = 0;
  std::uint64_t count = 0;
  return map >> first >> outside >> count && count == 1 && !(map >> first);
}

void BecomeOtherUser(const std::vector<gid_t>& groups) {
  constexpr uid_t other = 65534;
  Require(setgroups(groups.size(), groups.data()) == 0 && setresgid(other, other, other) == 0 &&
              setresuid(other, other, other) == 0,
          "become another user");
  // The daemon may look at its executable again.
  prctl(PR_SET_DUMPABLE, 1);
}

bool IsOnBroker() {
  const char* const bus = getenv("BRIMLET_TEST_BUS");
  return bus != nullptr && bus == std::string_view("dbus-broker");
}

bool PrepareForBuses() {
  if (!IsOnBroker()) {
    return true;
  }
  if (RunAndRead({"dbus-broker-launch", "--version"}).empty()) {
    std::cout << "not run: dbus-broker is not there" << std::endl;
    return false;
  }
  StartJournal();
  return true;
}

std::unique_ptr<Process> StartPrivateBus(const std::string& folder, const std::string& rules) {
  WriteWhole(kBusFolder + "/system.d/rules.conf", "<busconfig>" + rules + "</busconfig>");
  const std::string socket = folder + "/bus";
  fs::remove(socket);
  // Other users come to the bus and to nothing else.
  fs::permissions(folder, fs::perms(0711));
  const std::string config = "--config-file=" + kBusFolder + "/bus.conf";
  const std::string address = "unix:path=" + socket;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  auto bus = std::make_unique<Process>(
      IsOnBroker() ? Command{"systemd-socket-activate", "--listen=" + socket,
                             "--setenv=DBUS_SYSTEM_BUS_ADDRESS", "dbus-broker-launch",
                             "--scope=system", config}
                   : Command{"dbus-daemon", "--nofork", config, "--address=" + address});
  Require(Eventually([&] { return fs::exists(socket); }), "start a bus");
  fs::permissions(socket, fs::perms(0777));
  return bus;
}

}  // namespace BrimletTest
