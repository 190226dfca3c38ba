// The life of the daemon: start, service, and every way in which it ends.
#include "utils/Bus.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

class BusServiceTest : public BusTest {
 protected:
  static std::string Service(const std::string& message) { return Error("BusService", message); }
};

TEST_F(BusServiceTest, ServesAndLogsToAFileOfItsOwn) {
  Daemon daemon;
  EXPECT_EQ(Caller().Call("echo --add"), "--add");
  EXPECT_EQ(ModeOf(mHome / "Brimlet/log"), S_IFDIR | 0700U);
  EXPECT_EQ(ModeOf(mHome / "Brimlet/log/brimletd.log"), S_IFREG | 0600U);
  EXPECT_EQ(TakeLog(), Lines{});
}

// The interface in a description, without comments and what stands between the tags.
std::string InterfaceIn(const std::string& description) {
  const std::string text = std::regex_replace(description, std::regex("<!--[^]*?-->"), "");
  std::smatch found;
  std::regex_search(text, found, std::regex("<interface name=\"com.tolvane.*\">[^]*?</interface>"));
  return std::regex_replace(found.str(), std::regex(">\\s+<"), "><");
}

TEST_F(BusServiceTest, IsWhatItsInstalledDescriptionSays) {
  Daemon daemon;
  const std::string seen =
      RunAndRead({"gdbus", "introspect", "--system", "--xml", "--dest=com.tolvane.brimlet",
                  "--object-path=/com/tolvane/brimlet"});
  EXPECT_EQ(InterfaceIn(seen), InterfaceIn(ReadWhole(kInterfacePath)));
  EXPECT_NE(InterfaceIn(seen), "") << seen;
}

TEST_F(BusServiceTest, EndsWithItsParent) {
  Daemon daemon;
  daemon.Main().Kill();
  // Its new parent is this process, which runs the casting engine's executable.
  EXPECT_EQ(WaitFor(daemon.Pid()), 1);
  EXPECT_EQ(TakeLog(), (Lines{Error("CallerAuth", "CheckParent path:" + kCorePath + " failed!"),
                              Service("Failed to CheckParent, r:-1")}));
}

TEST_F(BusServiceTest, EndsUnderAnotherParentWithoutAnsweringItsFirstCall) {
  Process daemon({kDaemonPath});
  Caller caller;
  EXPECT_TRUE(Eventually(
      [&] { return sd_bus_get_name_creds(caller.Get(), Velmar::kBusName, 0, nullptr) >= 0; }));
  // A call that comes before the first wait is answered.
  std::string reply = caller.Call("echo --add");
  for (int i = 0; i < 1000 && reply == "--add"; ++i) {
    reply = caller.Call("echo --add");
  }
  EXPECT_EQ(reply, "error: org.freedesktop.DBus.Error.NoReply");
  EXPECT_EQ(daemon.Wait(), 1);
  EXPECT_EQ(TakeLog().size(), 2U);
}

TEST_F(BusServiceTest, EndsWithTheBus) {
  Daemon daemon;
  mBus->Kill();
  EXPECT_EQ(daemon.WaitForEnd(), 1);
  EXPECT_EQ(TakeLog(), Lines{Service("Failed to sd_bus_process: -104")});
}

TEST_F(BusServiceTest, EndsWithoutABus) {
  mBus->Kill();
  std::filesystem::remove(mHome / "bus");
  EXPECT_EQ(Process({kDaemonPath}).Wait(), 1);
  EXPECT_EQ(TakeLog(), Lines{Service("Failed to connect to system bus: -2")});
}

TEST_F(BusServiceTest, LeavesTheNameToItsOwner) {
  Daemon daemon;
  EXPECT_EQ(Process({kDaemonPath}).Wait(), 1);
  EXPECT_EQ(TakeLog(), Lines{Service("Failed to acquire service name: -17")});
  EXPECT_EQ(Caller().Call("echo --add"), "--add");
}

TEST_F(BusServiceTest, EndsSilentlyWithoutALogDirectory) {
  WriteWhole(mHome / "Brimlet", "not a directory");
  EXPECT_EQ(Process({kDaemonPath}).Wait(), 1);
  EXPECT_EQ(ReadWhole(mHome / "Brimlet"), "not a directory");
  EXPECT_EQ(sd_bus_get_name_creds(Caller().Get(), Velmar::kBusName, 0, nullptr), -ENXIO);
}

TEST_F(BusServiceTest, ServesWithoutALog) {
  std::filesystem::create_directories(mHome / "Brimlet/log");
  const std::string log = mHome / "Brimlet/log/brimletd.log";
  mkfifo(log.c_str(), 0600);
  Daemon daemon;
  EXPECT_EQ(Caller().Call("echo --nope"), "ExecutePopen failed!");
  EXPECT_EQ(ModeOf(log), S_IFIFO | 0600U);
}

TEST_F(BusServiceTest, GivesCommandsThreeDescriptorsWhateverItWasStartedWith) {
  const std::string list = "ls${IFS}/proc/$$/fd;: --add";
  std::string foreign;
  for (int fd = 3; fd < 23; ++fd) {
    foreign.append(" ").append(std::to_string(fd)).append("</dev/null");
  }
  const std::string redirections[] = {
      "",         "<&-",      ">&-",          "2>&-",  "<&- >&-",
      "<&- 2>&-", ">&- 2>&-", "<&- >&- 2>&-", foreign, "<&- >&- 2>&-" + foreign};
  for (const std::string& redirection : redirections) {
    // Not every shell knows descriptors of two digits.
    std::string start = "exec bash -c 'exec ";
    start.append(kDaemonPath).append(" ").append(redirection).append("'");
    Daemon daemon(Script("launch", start));
    EXPECT_EQ(Caller().Call(list), "0\n1\n2") << redirection;
    EXPECT_EQ(Caller().Call("echo --nope"), "ExecutePopen failed!");
    EXPECT_EQ(TakeLog().size(), 2U) << redirection;
    daemon.Main().CloseInput();
    EXPECT_EQ(daemon.Main().Wait(), 0);
  }
}

TEST_F(BusServiceTest, PassesNoSignalSettingsOnFromItsParent) {
  Daemon daemon(Script(
      "launch",
      "exec env --ignore-signal=CHLD,PIPE,USR1 --block-signal=TERM,CHLD,USR2 " + kDaemonPath));
  for (const char* const kind : {"SigBlk", "SigIgn"}) {
    const std::string show = std::string("grep${IFS}") + kind + "${IFS}/proc/self/status;: --add";
    const std::string mask = Caller().Call(show).substr(sizeof "SigBlk:");
    // The C library keeps what lies above for itself.
    EXPECT_EQ(std::stoul(mask, nullptr, 16) & 0x7fffffffU, 0U) << kind << mask;
  }
  EXPECT_EQ(Caller().Call("yes;: --add"), "ExecutePopen failed!");
}

TEST_F(BusServiceTest, DoesNotGrow) {
  Daemon daemon;
  Caller caller;
  const auto call = [&](int count) {
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(caller.Call("echo --add"), "--add");
      ASSERT_EQ(caller.Call("echo --nope"), "ExecutePopen failed!");
    }
  };
  call(100);
  const std::size_t descriptors = daemon.CountDescriptors();
  [[maybe_unused]] const std::size_t pages = daemon.ResidentPages();
  call(1000);
  EXPECT_EQ(daemon.CountDescriptors(), descriptors);
#ifndef BRIMLET_SANITIZED  // freed memory is kept there, to find its use
  EXPECT_LE(daemon.ResidentPages(), pages + 16);
#endif
}

}  // namespace
}  // namespace BrimletTest
