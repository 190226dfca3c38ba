// A machine of its own for the tests of the running daemon: a private mount namespace in which the
// application is installed, a private bus, the main program and the daemon as its child.
//
// The test program itself runs from the casting engine's installed path: it is an admitted caller,
// but no admitted parent. Everything that it makes lies in a file system that nobody else sees.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/Support.h"

namespace BrimletTest {

using Command = std::vector<std::string>;

inline const std::string kCorePath = "/opt/apps/com.tolvane.brimlet/files/orvix/bin/OrvixCore";
inline const std::string kMainPath = "/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet";
inline const std::string kDaemonPath = "/opt/brimletd";
inline const std::string kBusFolder = "/opt/bus";
inline const std::string kInterfacePath = "/opt/com.tolvane.brimlet.xml";

// Of the one group that may call the daemon.
constexpr gid_t kMemberGroup = 64000;

// Asks again and again until `condition` is true or 20 seconds are over; returns its last answer.
bool Eventually(const std::function<bool()>& condition);

// A child process with pipes to its standard input and output. It is killed at the end, and also
// when the test program dies.
class Process {
 public:
  explicit Process(const Command& command);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  // -1 once its end was waited for.
  [[nodiscard]] pid_t Pid() const { return mPid; }
  // The next line of its output, without its line feed; empty at the end.
  std::string ReadLine();
  std::string ReadAll();
  void WriteLine(const std::string& line);
  void CloseInput() { mInput.reset(); }
  void Kill();
  // Its exit status, or 128 and the signal that ended it; none when it runs on.
  std::optional<int> Wait();

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  using UniqueFile = std::unique_ptr<std::FILE, Closer>;

  pid_t mPid = -1;
  UniqueFile mInput;
  UniqueFile mOutput;
};

// Runs a program to its end and returns what it prints.
std::string RunAndRead(const Command& command);

// The same with `command[0]` standing at `path`, an installed file, for the time being.
std::string RunAndReadAt(const std::string& path, Command command);

// Waits for the end of a child, or of a process that its parent's death made a child of this one.
std::optional<int> WaitFor(pid_t pid);

// One connection to the bus.
class Caller {
 public:
  Caller();
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;
  ~Caller();

  // The reply, or "error: " and the error's name.
  std::string Call(const std::string& line);
  // Sends without waiting.
  void Send(const std::string& line);
  // The replies to everything that was sent, in the order of their arrival, each behind the number
  // of its request ("0: text").
  Lines Receive();
  // Sends without wanting a reply.
  void SendNoReply(const std::string& line);
  [[nodiscard]] sd_bus* Get() const { return mBus; }

 private:
  struct Request {
    Caller* caller;
    std::size_t number;
  };
  static int OnReply(sd_bus_message* reply, void* request, sd_bus_error* error);
  sd_bus_message* NewCall(const std::string& line);

  sd_bus* mBus = nullptr;
  std::vector<std::unique_ptr<Request>> mRequests;
  Lines mReplies;
};

// Whether this user namespace has no other user than this one.
bool HasOneUser();

// Makes this process that of a user without rights, who is in these groups and in no others.
void BecomeOtherUser(const std::vector<gid_t>& groups);

// What the test program does as "--attack NAME" from any other path than the casting engine's.
// Returns its exit status.
int Attack(const std::string& name);

// What the test program does as "--send-calls USER" and "--send-signals USER": sends messages to
// the daemon as that user and prints what came of each.
int SendProbes(const std::string& mode, const std::string& user);

// The main program with the daemon as its child; both are stopped at the end.
class Daemon {
 public:
  // `program` is what the main program starts: the daemon, or what becomes it.
  explicit Daemon(const std::string& program = kDaemonPath);
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;
  ~Daemon();

  [[nodiscard]] pid_t Pid() const { return mPid; }
  Process& Main() { return mMain; }
  // Its exit status once it has ended without the main program's doing.
  std::optional<int> WaitForEnd();
  [[nodiscard]] std::size_t CountDescriptors() const;
  [[nodiscard]] std::size_t ResidentPages() const;

 private:
  Process mMain;
  pid_t mPid;
};

enum class BusPolicy {
  kAsInstalled,
  kOpenToAll,  // every message of everybody gets as far as the daemon
};

// Whether the bus is run by dbus-broker, as BRIMLET_TEST_BUS in the environment may ask for, and
// not by dbus-daemon.
bool IsOnBroker();

// A fresh home directory and a fresh bus, which is the system bus for this process and its
// children.
class BusTest : public testing::Test {
 protected:
  BusTest();

  void StartBus(BusPolicy policy);
  // The daemon logs a failure after its reply. It describes itself, which asks for no admission,
  // when it is done with that.
  static void WaitUntilIdle();
  // The lines that the daemon logged since the last call, without times and line numbers.
  Lines TakeLog();
  static std::string Error(const std::string& unit, const std::string& message) {
    return "[ERROR] [" + unit + "] ORVIX_BRIMLETD: " + message;
  }
  // A shell script with the given body; returns its path.
  std::string Script(const std::string& name, const std::string& body) const;

  TempFolder mHome;
  std::unique_ptr<Process> mBus;

 private:
  std::size_t mTaken = 0;
};

}  // namespace BrimletTest
