#include "benchmarks/end_to_end_peers.h"

#include <fcntl.h>
#include <grp.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <stdexcept>

#include "benchmarks/end_to_end_contenders.h"
#include "tests/Support.h"

namespace BrimletBench {
namespace {

namespace fs = std::filesystem;
using BrimletTest::Command;
using BrimletTest::kCorePath;
using BrimletTest::Process;
using BrimletTest::Require;
using BrimletTest::WriteWhole;

constexpr uid_t kOtherUser = 65534;
constexpr const char* kOtherUserName = "nobody";
constexpr const char* kPolkitDaemon = "/usr/lib/polkit-1/polkitd";

bool BecomeOtherUser() {
  return setgroups(0, nullptr) == 0 && setresgid(kOtherUser, kOtherUser, kOtherUser) == 0 &&
         setresuid(kOtherUser, kOtherUser, kOtherUser) == 0;
}

// Not in the namespace of an ordinary user.
bool IsThereAnotherUser() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(BecomeOtherUser() ? 0 : 1);
  }
  return BrimletTest::WaitFor(child) == 0;
}

// A changed copy of /etc, and an empty /run, both for this machine alone.
void MakeConfiguration() {
  if (!IsThereAnotherUser()) {
    throw std::runtime_error("there is no other user here, and so none who may change the user");
  }
  const std::string copied = BrimletTest::RunAndRead({"sh", "-c", "cp -a /etc /opt/etc 2>&1"});
  if (!copied.empty()) {
    throw std::runtime_error("no copy of /etc: " + copied.substr(0, copied.find('\n')));
  }
  Require(mount("/opt/etc", "/etc", nullptr, MS_BIND, nullptr) == 0, "mount /etc");
  Require(mount("brimlet-test", "/run", "tmpfs", 0, "mode=0755") == 0, "mount /run");
  const std::string name = kOtherUserName;
  WriteWhole("/etc/sudoers", name + " ALL=(ALL) NOPASSWD: ALL\n");
  fs::permissions("/etc/sudoers", fs::perms(0440));
  WriteWhole("/etc/doas.conf", "permit nopass " + name + "\n");
  const std::string rules = "/etc/polkit-1/rules.d";
  fs::create_directories(rules);
  WriteWhole(rules + "/00-brimlet.rules",
             "polkit.addRule(function() { return polkit.Result.YES; });\n");
}

// polkitd looks for the sessions of users; pkexec heeds no variable that tells where the bus is.
std::unique_ptr<Process> StartPolkit() {
  fs::create_directories("/run/dbus");
  for (const char* const name : {"seats", "sessions", "users", "machines"}) {
    fs::create_directories(std::string("/run/systemd/") + name);
  }
  const std::string bus = std::strchr(getenv("DBUS_SYSTEM_BUS_ADDRESS"), '/');
  fs::create_symlink(bus, "/run/dbus/system_bus_socket");
  auto polkit = std::make_unique<Process>(
      Command{"sh", "-c", std::string("exec ") + kPolkitDaemon + " --no-debug >/dev/null 2>&1"});
  WaitForName("org.freedesktop.PolicyKit1", polkit->Pid());
  return polkit;
}

bool IsInstalled(const std::string& program) {
  return !BrimletTest::RunAndRead({"sh", "-c", "command -v " + program}).empty();
}

// Runs a command to its end and returns all that it prints.
std::string RunToEnd(char** command) {
  std::array<int, 2> output{};
  Require(pipe2(output.data(), O_CLOEXEC) == 0, "pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDERR_FILENO);
  pid_t pid = -1;
  const int result = posix_spawnp(&pid, command[0], &actions, nullptr, command, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(output[1]);
  std::string text;
  std::array<char, 1024> piece;
  for (ssize_t got = 1; got > 0 && result == 0;) {
    got = read(output[0], piece.data(), piece.size());
    text.append(piece.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  }
  close(output[0]);
  if (result != 0) {
    return std::strerror(result);
  }
  waitpid(pid, nullptr, 0);
  return text;
}

// What `work` throws; empty when it succeeds.
std::string WhyNot(const std::function<void()>& work) {
  try {
    work();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

// Starts the runner and has it run once.
void Start(Peer& peer, const Command& command, const std::string& output) {
  if (!IsInstalled(command[0])) {
    peer.whyNot = "not installed";
    return;
  }
  Command runner = {kCorePath, "--run-peer", output};
  runner.insert(runner.end(), command.begin(), command.end());
  peer.runner = std::make_unique<Process>(runner);
  peer.runner->WriteLine("");
  const std::string answer = peer.runner->ReadLine();
  if (answer.empty() || std::isdigit(static_cast<unsigned char>(answer[0])) == 0) {
    peer.whyNot = answer;
    peer.runner.reset();
  }
}

}  // namespace

Peers::Peers(const std::string& line, const std::string& output) {
  const struct {
    const char* name;
    double bound;
    Command command;
  } known[] = {{"doas", 0.4, {"doas", "-n", "sh", "-c", line}},
               {"sudo -n", 0.33, {"sudo", "-n", "sh", "-c", line}},
               {"pkexec", 0.1, {"pkexec", "sh", "-c", line}}};
  const std::string whyNot = WhyNot(MakeConfiguration);
  if (whyNot.empty() && IsInstalled("pkexec")) {
    // Without it, pkexec tells what it misses.
    static_cast<void>(WhyNot([&] { mPolkit = StartPolkit(); }));
  }
  for (const auto& entry : known) {
    Peer& peer = mPeers.emplace_back(Peer{entry.name, entry.bound, nullptr, whyNot});
    if (whyNot.empty()) {
      Start(peer, entry.command, output);
    }
  }
}

double MeasurePeer(Peer& peer) {
  peer.runner->WriteLine("");
  return std::stod(peer.runner->ReadLine());
}

int RunPeer(const std::string& output, char** command) {
  BrimletTest::Require(BecomeOtherUser(), "become another user");
  for (std::string line; std::getline(std::cin, line);) {
    std::string text;
    const double time = Measure([&] { text = RunToEnd(command); });
    if (text != output) {
      std::cout << "it says: " << text.substr(0, text.find('\n')) << std::endl;
      return EXIT_FAILURE;
    }
    std::cout << time << std::endl;
  }
  return EXIT_SUCCESS;
}

}  // namespace BrimletBench
