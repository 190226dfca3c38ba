// What the daemon does when the system fails it. A tracer makes one system call fail at a time;
// limits and a full disk do the rest. Of the failures that the daemon knows, these cannot be
// brought about from outside: an object that cannot be exported, credentials without a process id,
// and an argument that the bus let through and that cannot be read.
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

const std::string kFailed = "ExecutePopen failed!";

// Makes system calls of a running process fail, from its next one on and as long as it lives.
class Tracer {
 public:
  Tracer(const std::string& strace, pid_t pid, const std::string& options)
      : mStrace({"sh", "-c",
                 "exec " + strace + "-p " + std::to_string(pid) + " " + options + " 2>&1"}) {
    std::string said = mStrace.ReadLine();
    while (said.find(" resolved into ") != std::string::npos) {
      said = mStrace.ReadLine();
    }
    if (!said.ends_with(" attached")) {
      throw std::runtime_error("These tests have to trace processes: " + said);
    }
  }
  Tracer(const Tracer&) = delete;
  Tracer& operator=(const Tracer&) = delete;
  // The process goes on as if nothing had been.
  ~Tracer() {
    kill(mStrace.Pid(), SIGTERM);
    mStrace.Wait();
  }

 private:
  Process mStrace;
};

void SetLimit(pid_t pid, __rlimit_resource resource, rlim_t value) {
  rlimit limit{};
  prlimit(pid, resource, nullptr, &limit);
  limit.rlim_cur = std::min(value, limit.rlim_max);
  ASSERT_EQ(prlimit(pid, resource, &limit, nullptr), 0);
}

class FailingCallsTest : public BusTest {
 protected:
  // A process that is traced cannot look for its leaks at its end.
  FailingCallsTest() { setenv("LSAN_OPTIONS", "detect_leaks=0", 1); }
  ~FailingCallsTest() override { unsetenv("LSAN_OPTIONS"); }

  void SetUp() override {
    ASSERT_EQ(RunAndRead({"sh", "-c", mStrace + "-qqq echo traced 2>&1"}), "traced\n")
        << "These tests have to trace processes.";
  }

  // What was logged, without the process ids in it.
  Lines TakeLogWithoutIds() {
    Lines lines = TakeLog();
    for (std::string& line : lines) {
      line = std::regex_replace(line, std::regex("/proc/\\d+/"), "/proc/ID/");
    }
    return lines;
  }
  void ExpectLogged(const Lines& lines, const std::string& why) {
    EXPECT_EQ(TakeLogWithoutIds(), lines) << why;
  }
  // A case in which nothing failed would show nothing.
  void ExpectInjected(const std::string& why) const {
    EXPECT_TRUE(Eventually([&] {
      return ReadWhole(mTrace).find("(INJECTED)") != std::string::npos;
    })) << why;
  }
  static std::string Service(const std::string& message) { return Error("BusService", message); }
  static std::string Auth(const std::string& message) { return Error("CallerAuth", message); }
  static std::string Method(const std::string& message) { return Error("CommandMethod", message); }

  const Lines mRefused = {Error("verifycmds", "It doesn't find this command"),
                          Method("PopenProcess fail r:-1 ")};
  const std::string mTrace = mHome / "trace";
  const std::string mStrace = "strace -o " + mTrace + " ";
  // The tracer is no parent of what it traces: that stays the main program's child.
  const std::string mLaunch = "exec " + mStrace + "-qqq -D ";
  const std::string mLogDir = mHome / "Brimlet/log";
  const std::string mLog = mLogDir + "/brimletd.log";
};

TEST_F(FailingCallsTest, AnswersLogsAndServesOn) {
  const std::string me = std::to_string(getpid());
  const std::string failure = "PopenProcess fail r:-1 ";
  const struct {
    std::string options, line, reply;
    Lines log;
  } cases[] = {
      {"-P /proc/" + me + "/exe -e inject=/^readlink:error=EACCES",
       "echo --add",
       "auth failed",
       {Auth("GetSenderPath readlink failed , path =/proc/ID/exe"), Method("CheckAuth failed: -1"),
        Method(failure)}},
      // A question that fails is asked again.
      {"-e inject=sendmsg:error=ENOBUFS:when=1", "echo --add", "--add", {}},
      {"-e inject=sendmsg:error=ENOBUFS:when=1..2 -e inject=connect:error=EAGAIN",
       "echo --add",
       "auth failed",
       {Auth("sd_bus_query_sender_creds failed: -105, creds = (nil)"),
        Auth("GetSenderPid failed. pid = -105"), Method("CheckAuth failed: -105"),
        Method("PopenProcess fail r:-105 ")}},
      // The library's own error follows the reply that could not be sent.
      {"-e inject=sendmsg:error=ENOBUFS:when=2",
       "echo --add",
       "error: org.freedesktop.DBus.Error.LimitsExceeded",
       {Method("PopenProcess fail r:-105 ")}},
      {"-e inject=/^pipe:error=EMFILE", "echo --add", kFailed, {Method(failure)}},
      {"-e inject=/^v*fork\\|^clone:error=EAGAIN", "echo --add", kFailed, {Method(failure)}},
      {"-e inject=read:error=EIO", "echo --add", "", {}},
      {"-e inject=/^wait:error=ECHILD", "echo --add", "--add", {}},
      // The first of the two lines is lost.
      {"-e inject=write:error=ENOSPC:when=1", "echo --nope", kFailed, {Method(failure)}},
  };
  Daemon daemon;
  const std::size_t descriptors = daemon.CountDescriptors();
  for (const auto& c : cases) {
    {
      const Tracer tracer(mStrace, daemon.Pid(), c.options);
      EXPECT_EQ(Caller().Call(c.line), c.reply) << c.options;
    }
    ExpectInjected(c.options);
    ExpectLogged(c.log, c.options);
    EXPECT_EQ(Caller().Call("echo --add"), "--add") << c.options;
    EXPECT_EQ(daemon.CountDescriptors(), descriptors) << c.options;
  }
}

TEST_F(FailingCallsTest, Ends) {
  const struct {
    std::string options;
    Lines log;
  } cases[] = {
      {"-e inject=recvmsg:error=EIO", {Service("Failed to sd_bus_process: -5")}},
      {"-e inject=/poll:error=EIO", {Service("Failed to sd_bus_wait: -5")}},
      {"-P /proc/PARENT/exe -e inject=/^readlink:error=EACCES",
       {Auth("GetSenderPath readlink failed , path =/proc/ID/exe"),
        Service("Failed to CheckParent, r:-1")}},
  };
  for (const auto& c : cases) {
    Daemon daemon;
    const std::string parent = std::to_string(daemon.Main().Pid());
    const Tracer tracer(mStrace, daemon.Pid(),
                        std::regex_replace(c.options, std::regex("PARENT"), parent));
    WaitUntilIdle();  // wakes it
    EXPECT_EQ(daemon.WaitForEnd(), 1) << c.options;
    ExpectInjected(c.options);
    ExpectLogged(c.log, c.options);
  }
}

TEST_F(FailingCallsTest, DoesNotStart) {
  const auto statusWith = [&](const std::string& fault) {
    return Process({"sh", "-c", "exec " + mStrace + "-e inject=" + fault + " " + kDaemonPath})
        .Wait();
  };
  EXPECT_EQ(statusWith("/^mkdir:error=ENOSPC"), 1);
  ExpectInjected("mkdir");
  EXPECT_FALSE(fs::exists(mLogDir));
  const struct {
    std::string fault, line;
  } cases[] = {
      {"socket:error=EMFILE", "Failed to connect to system bus: -24"},
      {"connect:error=ECONNREFUSED", "Failed to connect to system bus: -111"},
      {"recvmsg:error=EIO", "Failed to acquire service name: -5"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(statusWith(c.fault), 1) << c.fault;
    ExpectInjected(c.fault);
    ExpectLogged({Service(c.line)}, c.fault);
  }
}

TEST_F(FailingCallsTest, StartsAllTheSame) {
  const std::string list = "ls${IFS}/proc/$$/fd;: --add";
  const std::string started = kDaemonPath + " 7</dev/null 9>&1";
  const struct {
    std::string options, line, reply;
    bool logs;
  } cases[] = {
      {"-P " + mLog + " -e inject=/^open:error=EACCES " + started, "echo --nope", kFailed, false},
      {"-e inject=/^fchmod:error=EPERM " + started, "echo --nope", kFailed, true},
      {"-e inject=close_range:error=ENOSYS " + started, list, "0\n1\n2", true},
  };
  for (const auto& c : cases) {
    const Daemon daemon(Script("launch", mLaunch + c.options));
    EXPECT_EQ(Caller().Call(c.line), c.reply) << c.options;
    ExpectInjected(c.options);
    EXPECT_EQ(fs::exists(mLog), c.logs) << c.options;
  }
  EXPECT_EQ(TakeLog(), mRefused);
}

TEST_F(FailingCallsTest, RotatesWhereTheFileSystemCannotCopyByItself) {
  fs::create_directories(mLogDir);
  WriteWhole(mLog, "first\n");
  fs::resize_file(mLog, 33554432);
  std::ofstream(mLog, std::ios::app) << "last\n";
  const std::string whole = ReadWhole(mLog);
  const Daemon daemon;
  {
    const Tracer tracer(mStrace, daemon.Pid(), "-e inject=copy_file_range:error=EXDEV");
    EXPECT_EQ(Caller().Call("echo --nope"), kFailed);
  }
  ExpectInjected("copy_file_range");
  EXPECT_EQ(TakeLog(), mRefused);
  EXPECT_TRUE(ReadWhole(mLog + ".old") == whole);
}

TEST_F(FailingCallsTest, StartsNoCommandWithoutDescriptors) {
  const Daemon daemon;
  SetLimit(daemon.Pid(), RLIMIT_NOFILE, 3);
  EXPECT_EQ(Caller().Call("echo --add"), kFailed);
  SetLimit(daemon.Pid(), RLIMIT_NOFILE, RLIM_INFINITY);
  EXPECT_EQ(Caller().Call("echo --add"), "--add");
  EXPECT_EQ(TakeLog(), Lines{Method("PopenProcess fail r:-1 ")});
}

TEST_F(FailingCallsTest, TearsNoLineAtALimitOfTheFileSize) {
  const Daemon daemon(Script("launch", "trap '' XFSZ; exec " + kDaemonPath));
  EXPECT_EQ(Caller().Call("echo --nope"), kFailed);
  EXPECT_EQ(TakeLog(), mRefused);
  SetLimit(daemon.Pid(), RLIMIT_FSIZE, fs::file_size(mLog) + 30);
  EXPECT_EQ(Caller().Call("echo --nope"), kFailed);
  EXPECT_EQ(TakeLog(), Lines{});
  SetLimit(daemon.Pid(), RLIMIT_FSIZE, RLIM_INFINITY);
  EXPECT_EQ(Caller().Call("echo --nope"), kFailed);
  EXPECT_EQ(TakeLog(), mRefused);
}

TEST_F(FailingCallsTest, LogsAgainWhenTheDiskIsNoLongerFull) {
  const auto page = static_cast<std::size_t>(getpagesize());
  const std::string size = "size=" + std::to_string(2 * page);
  fs::create_directories(mLogDir);
  ASSERT_EQ(mount("small", mLogDir.c_str(), "tmpfs", 0, size.c_str()), 0);
  {
    const Daemon daemon;
    Caller caller;
    WriteWhole(mLogDir + "/filler", std::string(page, 'x'));
    for (std::size_t i = 0; i < page / 100; ++i) {
      EXPECT_EQ(caller.Call("echo --nope"), kFailed);
    }
    for (const std::string& line : TakeLog()) {
      EXPECT_TRUE(std::find(mRefused.begin(), mRefused.end(), line) != mRefused.end()) << line;
    }
    EXPECT_GT(fs::file_size(mLog), page - 200) << "the disk was full";
    fs::remove(mLogDir + "/filler");
    EXPECT_EQ(caller.Call("echo --nope"), kFailed);
    EXPECT_EQ(TakeLog(), mRefused);
  }
  EXPECT_EQ(umount2(mLogDir.c_str(), MNT_DETACH), 0);
}

}  // namespace
}  // namespace BrimletTest
