#include "tests/PrivateBus.h"

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

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "com.tolvane.brimlet";
constexpr const char* kObject = "/com/tolvane/brimlet";
constexpr int kSkipped = 77;
constexpr std::uint64_t kCallTimeoutUsec = 120'000'000;

void Require(bool condition, const std::string& what) {
  if (!condition) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
  }
}

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

// The policy names a group that the machine need not have.
void AddGroup() {
  const std::string groups = "/opt/group";
  WriteWhole(groups, ReadWhole("/etc/group") +
                         "\n" BRIMLET_GROUP ":x:" + std::to_string(kMemberGroup) + ":\n");
  Require(mount(groups.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0, "add a group");
}

// Installs an open file, which the private file system may have hidden.
void Install(int fd, const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
  fs::copy_file("/proc/self/fd/" + std::to_string(fd), path);
  fs::permissions(path, fs::perms(0755));
}

// Goes on as the casting engine on the private machine. Returns only by an exception.
void BecomeCore(char** arguments) {
  const int self = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  const int main = open(BRIMLET_MAIN_PROGRAM, O_RDONLY | O_CLOEXEC);
  const int daemon = open(BRIMLET_DAEMON, O_RDONLY | O_CLOEXEC);
  const int bus = open(BRIMLET_BUS_CONF, O_RDONLY | O_CLOEXEC);
  const int interface = open(BRIMLET_INTERFACE_XML, O_RDONLY | O_CLOEXEC);
  const int policy = open(BRIMLET_BUS_POLICY, O_RDONLY | O_CLOEXEC);
  EnterNamespace();
  // Other users have to get to the bus and to the programs.
  umask(022);
  Install(self, kCorePath);
  Install(main, kMainPath);
  Install(daemon, kDaemonPath);
  Install(bus, kBusFolder + "/bus.conf");
  Install(policy, kBusFolder + "/system.d/com.tolvane.brimlet.conf");
  Install(interface, kInterfacePath);
  AddGroup();
  fs::create_directory("/opt/tmp");
  setenv("TMPDIR", "/opt/tmp", 1);
  execv(kCorePath.c_str(), arguments);
  Require(false, "exec " + kCorePath);
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

std::string TextOf(sd_bus_message* reply) {
  const sd_bus_error* const error = sd_bus_message_get_error(reply);
  if (error != nullptr) {
    return std::string("error: ") + error->name;
  }
  const char* text = nullptr;
  return sd_bus_message_read(reply, "s", &text) >= 0 ? text : "error: no string";
}

// Its connection outlives the executable, and with it the name that the daemon asks the bus about.
void SendAndBecomeCore(const std::string& line) {
  Caller caller;
  caller.Send(line);
  fcntl(sd_bus_get_fd(caller.Get()), F_SETFD, 0);
  std::cout << "sent" << std::endl;
  execl(kCorePath.c_str(), kCorePath.c_str(), "--call-at-end", "echo --add", nullptr);
}

}  // namespace

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

std::string RunAndReadAt(const std::string& path, Command command) {
  const std::string program = RunAndRead({"which", command[0]});
  Require(mount(program.substr(0, program.size() - 1).c_str(), path.c_str(), nullptr, MS_BIND,
                nullptr) == 0,
          "put " + program + " at " + path);
  command[0] = path;
  std::string output = RunAndRead(command);
  Require(umount2(path.c_str(), MNT_DETACH) == 0, "umount " + path);
  return output;
}

std::optional<int> WaitFor(pid_t pid) {
  int status = 0;
  if (!Eventually([&] { return waitpid(pid, &status, WNOHANG) != 0; })) {
    return std::nullopt;
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

Caller::Caller() { Require(sd_bus_open_system(&mBus) >= 0, "open the bus"); }

Caller::~Caller() { sd_bus_flush_close_unref(mBus); }

sd_bus_message* Caller::NewCall(const std::string& line) {
  sd_bus_message* call = nullptr;
  Require(sd_bus_message_new_method_call(mBus, &call, kName, kObject, kName, "brimletd") >= 0 &&
              sd_bus_message_append(call, "s", line.c_str()) >= 0,
          "make a call");
  return call;
}

std::string Caller::Call(const std::string& line) {
  sd_bus_message* const call = NewCall(line);
  sd_bus_message* reply = nullptr;
  sd_bus_error error{};
  const int r = sd_bus_call(mBus, call, kCallTimeoutUsec, &error, &reply);
  std::string text = r < 0 ? std::string("error: ") + error.name : TextOf(reply);
  sd_bus_error_free(&error);
  sd_bus_message_unref(reply);
  sd_bus_message_unref(call);
  return text;
}

void Caller::Send(const std::string& line) {
  sd_bus_message* const call = NewCall(line);
  mRequests.push_back(std::make_unique<Request>(Request{this, mRequests.size()}));
  Require(sd_bus_call_async(mBus, nullptr, call, OnReply, mRequests.back().get(),
                            kCallTimeoutUsec) >= 0,
          "send");
  sd_bus_message_unref(call);
  sd_bus_flush(mBus);
}

int Caller::OnReply(sd_bus_message* reply, void* request, sd_bus_error* /*error*/) {
  const auto* const done = static_cast<const Request*>(request);
  done->caller->mReplies.push_back(std::to_string(done->number) + ": " + TextOf(reply));
  return 1;
}

Lines Caller::Receive() {
  while (mReplies.size() < mRequests.size()) {
    const int r = sd_bus_process(mBus, nullptr);
    Require(r >= 0, "process");
    if (r == 0) {
      sd_bus_wait(mBus, UINT64_MAX);
    }
  }
  mRequests.clear();
  return std::exchange(mReplies, {});
}

void Caller::SendNoReply(const std::string& line) {
  sd_bus_message* const call = NewCall(line);
  sd_bus_message_set_expect_reply(call, 0);
  Require(sd_bus_send(mBus, call, nullptr) >= 0 && sd_bus_flush(mBus) >= 0, "send");
  sd_bus_message_unref(call);
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

BusTest::BusTest() {
  setenv("HOME", mHome.Path().c_str(), 1);
  StartBus(BusPolicy::kAsInstalled);
}

void BusTest::StartBus(BusPolicy policy) {
  const std::string open = kBusFolder + "/system.d/open.conf";
  fs::remove(open);
  if (policy == BusPolicy::kOpenToAll) {
    WriteWhole(open, R"(<busconfig><policy context="mandatory">
                        <allow send_destination="com.tolvane.brimlet"/>
                        </policy></busconfig>)");
  }
  const std::string socket = mHome / "bus";
  fs::remove(socket);
  // Other users come to the bus and to nothing else.
  fs::permissions(mHome.Path(), fs::perms(0711));
  const std::string config = "--config-file=" + kBusFolder + "/bus.conf";
  const std::string address = "unix:path=" + socket;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  mBus.reset();
  mBus = std::make_unique<Process>(
      IsOnBroker() ? Command{"systemd-socket-activate", "--listen=" + socket,
                             "--setenv=DBUS_SYSTEM_BUS_ADDRESS", "dbus-broker-launch",
                             "--scope=system", config}
                   : Command{"dbus-daemon", "--nofork", config, "--address=" + address});
  Require(Eventually([&] { return fs::exists(socket); }), "start a bus");
  fs::permissions(socket, fs::perms(0777));
}

void BusTest::WaitUntilIdle() {
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) >= 0) {
    sd_bus_call_method(bus, kName, kObject, "org.freedesktop.DBus.Introspectable", "Introspect",
                       nullptr, nullptr, nullptr);
  }
  sd_bus_flush_close_unref(bus);
}

Lines BusTest::TakeLog() {
  WaitUntilIdle();
  Lines lines = LinesOf(ReadWhole(mHome / "Brimlet/log/brimletd.log"));
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(mTaken));
  mTaken += lines.size();
  for (std::string& line : lines) {
    line = StripLogLine(line);
  }
  return lines;
}

std::string BusTest::Script(const std::string& name, const std::string& body) const {
  std::string path = mHome / name;
  WriteWhole(path, "#!/bin/sh\n" + body + "\n");
  fs::permissions(path, fs::perms(0755));
  return path;
}

}  // namespace BrimletTest

// With "--call-at-end LINE": makes one call once its standard input ends, and prints the reply.
// With "--send-and-become-core LINE": sends a call and executes the casting engine, still
// connected.
int main(int argc, char** argv) {
  using namespace BrimletTest;
  const std::string mode = argc == 3 ? argv[1] : "";
  if (mode == "--attack") {
    return Attack(argv[2]);
  }
  if (mode == "--send-calls" || mode == "--send-signals") {
    return SendProbes(mode, argv[2]);
  }
  if (mode == "--send-and-become-core") {
    SendAndBecomeCore(argv[2]);
  }
  if (mode == "--call-at-end") {
    while (std::cin.get() != EOF) {
    }
    std::cout << Caller().Call(argv[2]) << std::endl;
    return 0;
  }
  if (std::filesystem::read_symlink("/proc/self/exe") != kCorePath) {
    BecomeCore(argv);
  }
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  if (IsOnBroker()) {
    if (RunAndRead({"dbus-broker-launch", "--version"}).empty()) {
      std::cout << "not run: dbus-broker is not there" << std::endl;
      return kSkipped;
    }
    StartJournal();
  }
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  const bool isTriedInFull = testing::UnitTest::GetInstance()->skipped_test_count() == 0;
  return result == 0 && !isTriedInFull ? kSkipped : result;
}
