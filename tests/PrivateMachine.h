// A machine of its own for a program that needs the running daemon: a private mount namespace in
// which the application is installed, a private bus, the main program and the daemon as its child.
//
// The program itself runs from the casting engine's installed path: it is an admitted caller, but
// no admitted parent. Everything that it makes lies in a file system that nobody else sees.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace BrimletTest {

using Command = std::vector<std::string>;

inline const std::string kCorePath = "/opt/apps/com.tolvane.brimlet/files/orvix/bin/OrvixCore";
inline const std::string kMainPath = "/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet";
inline const std::string kDaemonPath = "/opt/brimletd";
inline const std::string kInterfacePath = "/opt/com.tolvane.brimlet.xml";

// Of the one group that may call the daemon.
constexpr gid_t kMemberGroup = 64000;

struct InstalledFile {
  const char* source;
  std::string path;
};

// Goes on as the casting engine on the private machine, with the same arguments, with the daemon,
// the main program and what the machine has to know of them, and with `files` installed. Returns
// only by an exception.
void BecomeCore(char** arguments, const std::vector<InstalledFile>& files = {});

// Throws unless `condition`: what failed, and why the last system call did.
void Require(bool condition, const std::string& what);

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

// Waits for the end of a child, or of a process that its parent's death made a child of this one.
std::optional<int> WaitFor(pid_t pid);

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

// Whether this user namespace has no other user than this one.
bool HasOneUser();

// Makes this process that of a user without rights, who is in these groups and in no others.
void BecomeOtherUser(const std::vector<gid_t>& groups);

// Whether the bus is run by dbus-broker, as BRIMLET_TEST_BUS in the environment may ask for, and
// not by dbus-daemon.
bool IsOnBroker();

// To be called once before the first bus is started. False when dbus-broker is asked for and not
// there.
bool PrepareForBuses();

// Starts a bus with its socket in `folder`; it is the system bus for this process and its children.
// It has the rules of the system's, those that are installed for the daemon, and `rules`: policies
// of a bus configuration.
std::unique_ptr<Process> StartPrivateBus(const std::string& folder, const std::string& rules = "");

}  // namespace BrimletTest
