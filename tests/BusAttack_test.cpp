// Everybody on the machine can try to talk to the daemon. Here somebody does: another program, run
// by another user where the machine has one, sends it whatever the bus lets through.
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <random>
#include <set>
#include <stdexcept>

#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

const std::string kAttackerPath = "/opt/attacker";
constexpr const char* kName = "com.tolvane.brimlet";
constexpr std::size_t kMiB = 1 << 20U;

// --- the attacker ---

std::mt19937 gRandom(20261116);  // NOLINT(cert-msc51-cpp): the same attack every time

std::size_t Below(std::size_t bound) { return gRandom() % bound; }

template <typename T, std::size_t N>
const T& AnyOf(const T (&values)[N]) {
  return values[Below(N)];
}

std::string RandomText(std::size_t maxLength) {
  std::string text(Below(maxLength), ' ');
  std::generate(text.begin(), text.end(), [] { return static_cast<char>(1 + Below(127)); });
  return text;
}

// Appends one value of a random type. Failures are the attacker's own.
void AppendRandom(sd_bus_message* message) {
  const std::string text = RandomText(3000);
  const std::uint64_t number = Below(2);  // good for all types, the boolean one too
  const std::size_t kind = Below(15);
  if (kind < 9) {
    sd_bus_message_append_basic(message, "ybnqiuxtd"[kind], &number);
    return;
  }
  switch (kind) {
    case 9:
      sd_bus_message_append(message, "s", "brimletd --exit");
      break;
    case 10:
      sd_bus_message_append(message, "as", 2, text.c_str(), "");
      break;
    case 11:
      sd_bus_message_append(message, "v", "(sv)", text.c_str(), "ai", 0);
      break;
    case 12:
      sd_bus_message_append_array(message, 'y', text.data(), text.size());
      break;
    case 13:
      sd_bus_message_append(message, "h", STDOUT_FILENO);
      break;
    default:
      sd_bus_message_append(message, "s", text.c_str());
  }
}

// Sends one message to anybody on the bus; wants no reply half of the time, and waits for none.
void SendRandom(sd_bus* bus) {
  static const char* const paths[] = {"/com/tolvane/brimlet", "/com/tolvane", "/", "/a/path"};
  static const char* const interfaces[] = {
      kName, kName, "org.freedesktop.DBus.Properties", "org.freedesktop.DBus.Peer", "a.b", nullptr};
  static const char* const members[] = {"brimletd", "brimletd", "Brimletd", "Get", "Ping", "a"};
  const std::string one = ":1." + std::to_string(Below(50));
  sd_bus_message* message = nullptr;
  if (sd_bus_message_new_method_call(bus, &message, Below(4) == 0 ? one.c_str() : kName,
                                     AnyOf(paths), AnyOf(interfaces), AnyOf(members)) < 0) {
    return;
  }
  for (std::size_t i = Below(3); i > 0; --i) {
    AppendRandom(message);
  }
  sd_bus_message_set_expect_reply(message, static_cast<int>(Below(2)));
  sd_bus_send(bus, message, nullptr);
  sd_bus_flush(bus);
  sd_bus_message_unref(message);
}

// Many connections at once, each left at any moment and made anew; some stay open.
void SendRandomMessages() {
  std::array<sd_bus*, 64> buses{};
  for (int i = 0; i < 3000; ++i) {
    sd_bus*& bus = buses[Below(buses.size())];
    if (Below(20) == 0) {
      bus = sd_bus_close_unref(bus);
    }
    if (bus != nullptr || sd_bus_open_system(&bus) >= 0) {
      SendRandom(bus);
    }
  }
}

void AppendNumber(std::string& to, std::size_t number) {
  for (int shift = 0; shift < 32; shift += 8) {
    to += static_cast<char>(number >> shift);
  }
}

// A method call as it goes over the wire.
std::string WireCall(char serial, const std::string& destination, const std::string& path,
                     const std::string& member, const std::string& line) {
  const auto align = [](std::string& text) { text.resize((text.size() + 7) / 8 * 8); };
  std::string fields;
  const auto append = [&](char field, char type, const std::string& text) {
    align(fields);
    fields += {field, 1, type, 0};
    type == 'g' ? void(fields += static_cast<char>(text.size()))
                : AppendNumber(fields, text.size());
    fields += text + '\0';
  };
  append(1, 'o', path);
  append(2, 's', destination);  // both names here are also those of the interface
  append(3, 's', member);
  append(6, 's', destination);
  std::string body;
  if (!line.empty()) {
    append(8, 'g', "s");
    AppendNumber(body, line.size());
    body += line + '\0';
  }
  std::string message = {'l', 1, 0, 1};
  AppendNumber(message, body.size());
  message += {serial, 0, 0, 0};
  AppendNumber(message, fields.size());
  message += fields;
  align(message);
  return message + body;
}

// Everything that a caller says from its first byte to its call.
std::string Conversation() {
  std::string user;
  for (const char digit : std::to_string(geteuid())) {
    user += {'3', digit};
  }
  return std::string(1, '\0') + "AUTH EXTERNAL " + user + "\r\nBEGIN\r\n" +
         WireCall(1, "org.freedesktop.DBus", "/org/freedesktop/DBus", "Hello", "") +
         WireCall(2, kName, "/com/tolvane/brimlet", "brimletd", "echo --add");
}

// The whole conversation is a good one: it ends with the daemon's reply.
void ExpectRefusal(int fd) {
  std::string heard;
  char byte = 0;
  while (!heard.ends_with("auth failed") && recv(fd, &byte, 1, 0) == 1) {
    heard += byte;
  }
  if (!heard.ends_with("auth failed")) {
    throw std::runtime_error("heard " + heard);
  }
}

// Vanishes after each number of bytes, then after any with one of them changed.
void CutConversations() {
  const std::string whole = Conversation();
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, std::strchr(getenv("DBUS_SYSTEM_BUS_ADDRESS"), '/'),
               sizeof address.sun_path - 1);
  for (std::size_t i = 0; i < 2500; ++i) {
    std::string said = whole.substr(0, i <= whole.size() ? i : Below(4 * whole.size()));
    if (i > whole.size() && !said.empty()) {
      said[Below(said.size())] = static_cast<char>(Below(256));
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    static_cast<void>(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    static_cast<void>(send(fd, said.data(), said.size(), MSG_NOSIGNAL));
    if (i == whole.size()) {
      ExpectRefusal(fd);
    }
    close(fd);
  }
}

void FloodWithCalls() {
  Caller caller;
  for (int i = 0; i < 10000; ++i) {
    caller.SendNoReply("echo --add");
  }
}

std::uint32_t ProcessOf(sd_bus* bus, const std::string& name) {
  sd_bus_message* reply = nullptr;
  std::uint32_t pid = 0;
  if (sd_bus_call_method(bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus",
                         "GetConnectionUnixProcessID", nullptr, &reply, "s", name.c_str()) >= 0) {
    sd_bus_message_read(reply, "u", &pid);
  }
  sd_bus_message_unref(reply);
  return pid;
}

// Of the daemon, the one that serves no calls and owns no name included.
Lines ConnectionsOfTheDaemon(sd_bus* bus) {
  Lines found;
  char** names = nullptr;
  const std::uint32_t daemon = ProcessOf(bus, kName);
  sd_bus_list_names(bus, &names, nullptr);
  for (char** name = names; name != nullptr && *name != nullptr; ++name) {
    if (**name == ':' && ProcessOf(bus, *name) == daemon) {
      found.emplace_back(*name);
    }
    free(*name);
  }
  free(names);
  return found;
}

// Signals, which the bus passes on to every connection without a name. More of them than it keeps
// for one, so that it drops its own answers to the daemon, too; from many senders, since it stops
// reading from one of whom it keeps much.
void FloodConnections() {
  const std::string text(kMiB, 'w');
  std::array<Caller, 20> callers;
  for (const Caller& caller : callers) {
    for (const std::string& name : ConnectionsOfTheDaemon(caller.Get())) {
      for (int i = 0; i < 20; ++i) {
        sd_bus_message* signal = nullptr;
        sd_bus_message_new_signal(caller.Get(), &signal, "/a/path", "a.b", "Signal");
        sd_bus_message_set_destination(signal, name.c_str());
        sd_bus_message_append(signal, "s", text.c_str());
        sd_bus_send(caller.Get(), signal, nullptr);
        sd_bus_flush(caller.Get());
        sd_bus_message_unref(signal);
      }
    }
  }
}

// Up to what the bus takes, and beyond.
void SendHugeCalls() {
  for (const std::size_t size : {kMiB, 16 * kMiB, 32 * kMiB - 1024, 32 * kMiB}) {
    Caller caller;
    caller.Send("echo --btup " + std::string(size, 'w'));
    sd_bus_flush(caller.Get());
  }
}

const struct {
  const char* name;
  void (*run)();
  std::size_t maxGrowth;  // of the daemon's memory, in bytes
} kAttacks[] = {{"random messages", SendRandomMessages, 4 * kMiB},
                {"cut conversations", CutConversations, 4 * kMiB},
                {"a flood of calls", FloodWithCalls, 4 * kMiB},
                {"a flood of every connection", FloodConnections, 4 * kMiB},
                // The allocator keeps some of it.
                {"huge calls", SendHugeCalls, 80 * kMiB}};

// --- the test ---

bool IsRunning(pid_t pid) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == 0;
}

// Makes honest calls as long as `attacker` runs; returns the longest time one took.
std::chrono::milliseconds CallUnder(Process& attacker) {
  using Clock = std::chrono::steady_clock;
  Clock::duration longest{};
  do {
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(Caller().Call("echo --add"), "--add");
    longest = std::max(longest, Clock::now() - start);
  } while (IsRunning(attacker.Pid()));
  return std::chrono::duration_cast<std::chrono::milliseconds>(longest);
}

// Every line has its layout, and none holds a text of the attacker's choice.
void ExpectWellFormed(const std::string& log) {
  std::set<std::string> kinds;
  for (const std::string& line : LinesOf(log)) {
    std::string stamp = line.substr(0, 26);
    std::replace_if(
        stamp.begin(), stamp.end(), [](unsigned char c) { return std::isdigit(c); }, '0');
    ASSERT_EQ(stamp, "[00-00-00 00:00:00.000000]") << line;
    if (kinds.insert(line.substr(26)).second) {
      EXPECT_TRUE(StripLogLine(line).starts_with("[ERROR] [C")) << line;
    }
  }
  EXPECT_LE(kinds.size(), 40U) << testing::PrintToString(kinds);
}

class BusAttackTest : public BusTest {
 protected:
  void SetUp() override {
    fs::copy_file(kCorePath, kAttackerPath, fs::copy_options::overwrite_existing);
  }
};

// Under the installed policy, which cannot keep signals from connections without a name.
TEST_F(BusAttackTest, FindsACallersProcessAfterAFloodThatCameWhileItWasIdle) {
  const Daemon daemon;
  [[maybe_unused]] const std::size_t pages = daemon.ResidentPages();
  EXPECT_EQ(Process({kAttackerPath, "--attack", "a flood of every connection"}).Wait(), 0);
  EXPECT_EQ(Caller().Call("echo --add"), "--add");
#ifndef BRIMLET_SANITIZED  // freed memory is kept there, to find its use
  EXPECT_LE(daemon.ResidentPages(), pages + 4 * kMiB / static_cast<std::size_t>(getpagesize()));
#endif
}

TEST_F(BusAttackTest, LeavesTheDaemonAsItWas) {
  const std::size_t maxLogSize = 32 * kMiB;
  [[maybe_unused]] const auto pageSize = static_cast<std::size_t>(getpagesize());
  const std::string logDir = mHome / "Brimlet/log";
  fs::create_directories(logDir);
  // Room for some of it: the attack makes the log rotate.
  WriteWhole(logDir + "/brimletd.log", "");
  fs::resize_file(logDir + "/brimletd.log", maxLogSize - kMiB / 2);
  StartBus(BusPolicy::kOpenToAll);

  const Daemon daemon;
  EXPECT_EQ(Caller().Call("echo --add"), "--add");
  const std::size_t descriptors = daemon.CountDescriptors();
  for (const auto& attack : kAttacks) {
    [[maybe_unused]] const std::size_t pages = daemon.ResidentPages();
    Process attacker({kAttackerPath, "--attack", attack.name});
    std::cout << attack.name << " by " << attacker.ReadLine() << std::flush;
    std::cout << ": the honest call took up to " << CallUnder(attacker).count() << " ms\n";
    EXPECT_EQ(attacker.Wait(), 0) << attack.name;
    EXPECT_EQ(Caller().Call("echo --add"), "--add") << attack.name;
    // Of the same process: one that has ended has none.
    EXPECT_EQ(daemon.CountDescriptors(), descriptors) << attack.name;
#ifndef BRIMLET_SANITIZED  // freed memory is kept there, to find its use
    EXPECT_LE(daemon.ResidentPages(), pages + attack.maxGrowth / pageSize) << attack.name;
#endif
  }
  WaitUntilIdle();
  EXPECT_EQ(std::distance(fs::directory_iterator(logDir), fs::directory_iterator()), 2);
  EXPECT_LE(fs::file_size(logDir + "/brimletd.log.old"), maxLogSize + 4300);
  ExpectWellFormed(ReadWhole(logDir + "/brimletd.log"));
}

}  // namespace

int Attack(const std::string& name) {
  const bool isOther = !HasOneUser();
  if (isOther) {
    BecomeOtherUser({});
  }
  std::cout << (isOther ? "another user" : "the same user, for there is no other") << std::endl;
  for (const auto& attack : kAttacks) {
    if (name == attack.name) {
      attack.run();
      _exit(0);  // with all that is still open
    }
  }
  return 1;
}

}  // namespace BrimletTest
