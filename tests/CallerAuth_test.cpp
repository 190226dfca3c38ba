// Who is admitted: both programs from their installed paths, and nobody else.
#include "daemon/SenderQuery.h"

#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "common/Logger.h"
#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

const Command kBusctl = {
    "busctl",   "call", "com.tolvane.brimlet", "/com/tolvane/brimlet", "com.tolvane.brimlet",
    "brimletd", "s",    "echo --add"};
const Command kGdbus = {"gdbus",
                        "call",
                        "--system",
                        "--dest=com.tolvane.brimlet",
                        "--object-path=/com/tolvane/brimlet",
                        "--method=com.tolvane.brimlet.brimletd",
                        "echo --add"};
const Command kDbusSend = {"dbus-send",
                           "--system",
                           "--print-reply=literal",
                           "--dest=com.tolvane.brimlet",
                           "/com/tolvane/brimlet",
                           "com.tolvane.brimlet.brimletd",
                           "string:echo --add"};

class CallerAuthTest : public BusTest {
 protected:
  // Calls with busctl as `path` starts it.
  static std::string CallAs(const std::string& path) {
    Command command = kBusctl;
    command[0] = path;
    return RunAndRead(command);
  }
  Lines Refusal(const std::string& path) {
    return {Error("CallerAuth", "CheckAuth path:" + path + " failed!"),
            Error("CommandMethod", "CheckAuth failed: -1"),
            Error("CommandMethod", "PopenProcess fail r:-1 ")};
  }
};

TEST_F(CallerAuthTest, AdmitsRealClientsAtBothInstalledPaths) {
  Daemon daemon;
  for (const std::string& path : {kCorePath, kMainPath}) {
    EXPECT_EQ(RunAndReadAt(path, kBusctl), "s \"--add\"\n") << path;
    EXPECT_EQ(RunAndReadAt(path, kGdbus), "('--add',)\n") << path;
    EXPECT_EQ(RunAndReadAt(path, kDbusSend), "   --add") << path;
  }
  daemon.Main().WriteLine("echo --add");
  EXPECT_EQ(daemon.Main().ReadLine(), "--add");
  EXPECT_EQ(TakeLog(), Lines{});
}

TEST_F(CallerAuthTest, RefusesEveryOtherPath) {
  const std::string busctl = fs::canonical("/usr/bin/busctl");
  const std::string folder = fs::path(kMainPath).parent_path();
  const std::string kept = mHome / "kept";
  Daemon daemon;
  for (const std::string& path :
       {folder + "/Brimlet2", folder + "/brimlet", folder + "/Brimle", mHome / "OrvixCore"}) {
    fs::copy_file(busctl, path);
    EXPECT_EQ(CallAs(path), "s \"auth failed\"\n") << path;
  }
  const std::string forged = "x\n[ERROR] \r\t\x1b[1m\x01\x7f\\ \xc3\xa9";
  fs::copy_file(busctl, mHome / forged);
  TakeLog();
  EXPECT_EQ(CallAs(mHome / forged), "s \"auth failed\"\n");
  EXPECT_EQ(TakeLog(), Refusal(mHome / "x\\n[ERROR] \\r\\t\\x1b[1m\\x01\\x7f\\ \xc3\xa9"));

  const std::string link = folder + "/link";
  fs::create_symlink(busctl, link);
  TakeLog();
  EXPECT_EQ(CallAs(link), "s \"auth failed\"\n");
  EXPECT_EQ(TakeLog(), Refusal(busctl));

  // A link at the admitted path itself.
  fs::rename(kCorePath, kept);
  fs::create_symlink(busctl, kCorePath);
  EXPECT_EQ(CallAs(kCorePath), "s \"auth failed\"\n");
  fs::rename(kept, kCorePath);
  EXPECT_EQ(TakeLog(), Refusal(busctl));
  EXPECT_EQ(Caller().Call("echo --add"), "--add");
}

TEST_F(CallerAuthTest, RefusesAnExecutableThatWasDeletedOrReplaced) {
  const std::string kept = mHome / "kept";
  Daemon daemon;
  fs::copy_file(kCorePath, mHome / "copy");
  fs::rename(kCorePath, kept);
  fs::rename(mHome / "copy", kCorePath);
  Process caller({kCorePath, "--call-at-end", "echo --add"});
  Process honest({kCorePath, "--call-at-end", "echo --add"});
  honest.CloseInput();
  EXPECT_EQ(honest.ReadLine(), "--add");
  fs::rename(kept, kCorePath);
  caller.CloseInput();
  EXPECT_EQ(caller.ReadLine(), "auth failed");
  EXPECT_EQ(TakeLog(), Refusal(kCorePath + " (deleted)"));
}

TEST_F(CallerAuthTest, RefusesACallerThatIsGone) {
  Daemon daemon;
  Caller caller;
  caller.Send("sleep${IFS}0.3;echo --add");
  Caller().SendNoReply("touch${IFS}" + mHome.Path() + "/ran;: --add");
  caller.Send("echo --add");
  EXPECT_EQ(caller.Receive(), (Lines{"0: --add", "1: --add"}));
  const Lines log = TakeLog();
  ASSERT_EQ(log.size(), 4U);
  EXPECT_TRUE(log[0].starts_with(Error("CallerAuth", "sd_bus_query_sender_creds failed: -")) &&
              log[0].ends_with(", creds = (nil)"))
      << log[0];
  EXPECT_TRUE(log[1].starts_with(Error("CallerAuth", "GetSenderPid failed. pid = -"))) << log[1];
  EXPECT_TRUE(log[2].starts_with(Error("CommandMethod", "CheckAuth failed: -"))) << log[2];
  EXPECT_TRUE(log[3].starts_with(Error("CommandMethod", "PopenProcess fail r:-"))) << log[3];
  EXPECT_FALSE(fs::exists(mHome / "ran"));
}

std::set<int> OwnSockets() {
  std::set<int> sockets;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    if (fs::is_socket(entry.path())) {
      sockets.insert(std::stoi(entry.path().filename()));
    }
  }
  return sockets;
}

TEST_F(CallerAuthTest, AsksAgainWhenItsConnectionToTheBusIsLost) {
  const Caller caller;
  const char* name = nullptr;
  sd_bus_get_unique_name(caller.Get(), &name);
  const std::set<int> others = OwnSockets();
  EXPECT_EQ(Velmar::QuerySenderPid(name), getpid());
  for (int i = 0; i < 2; ++i) {
    for (const int socket : OwnSockets()) {
      EXPECT_TRUE(others.contains(socket) || shutdown(socket, SHUT_RDWR) == 0);
    }
    EXPECT_EQ(Velmar::QuerySenderPid(name), getpid());
  }
}

TEST_F(CallerAuthTest, LetsNobodyElseStopTheDaemon) {
  Daemon daemon;
  Command stop = kBusctl;
  stop.back() = "brimletd --exit";
  EXPECT_EQ(RunAndRead(stop), "s \"auth failed\"\n");
  EXPECT_EQ(Caller().Call("echo --add"), "--add");
}

}  // namespace
}  // namespace BrimletTest
