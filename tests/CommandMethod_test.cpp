// What a call is answered, what runs and what is logged, on every path.
#include "daemon/CommandMethod.h"

#include <filesystem>

#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

const std::string kFailed = "ExecutePopen failed!";
const std::string k16 = "abcdefghij_12345";
const std::string k64 = k16 + k16 + k16 + k16;

class CommandMethodTest : public BusTest {
 protected:
  // A line that runs a shell script made of `body`.
  std::string Line(const std::string& body) const { return Script("command", body) + " --add"; }
  static std::string Failure(int r) {
    return Error("CommandMethod", "PopenProcess fail r:" + std::to_string(r) + " ");
  }
  const std::string mUnknown = Error("verifycmds", "It doesn't find this command");
  const std::string mTooLong = Error("CommandMethod", "lenBuf >= MAX_BUF_SIZE or < 1!");
};

TEST_F(CommandMethodTest, AnswersAsTheOutputAndItsBoundsTell) {
  Daemon daemon;
  Caller caller;
  const struct {
    const char* body;
    std::string reply;
    Lines log;
  } cases[] = {
      {"echo ok", "ok", {}},
      {"printf ok", "o", {}},
      {"printf o", "", {}},
      {":", "", {}},
      {"echo ok; exit 3", "ok", {}},
      {"echo error >&2", "", {}},
      {"echo ok; kill -9 $$", "ok", {}},
      {"printf '%s' \"$*\"", "--ad", {}},
      {"printf 'a\\n\\nb\\n'", "a\n\nb", {}},
      {"printf 'a\\0hidden\\nb\\n'", "ab", {}},
      {"printf '\\n\\0\\nb\\n'", "\nb", {}},
      {"printf '\\0a\\n'", kFailed, {mTooLong, Failure(-1)}},
      {"head -c 102399 /dev/zero | tr '\\0' x", std::string(102398, 'x'), {}},
      {"head -c 102400 /dev/zero | tr '\\0' x", kFailed, {mTooLong, Failure(-1)}},
      {"yes x", kFailed, {mTooLong, Failure(-1)}},
      {"yes | head -c 102398", RunAndRead({"sh", "-c", "yes | head -c 102397"}), {}},
      {"head -c 2046 /dev/zero | tr '\\0' x; echo", std::string(2046, 'x'), {}},
      // A zero byte hides the rest of its piece of 1023 bytes, the second one here.
      {"head -c 2000 /dev/zero | tr '\\0' x; printf '\\0%0100d\\n'",
       std::string(2000, 'x') + std::string(55, '0'),
       {}},
      {"printf 'caf\\303\\251\\n'", "caf\xc3\xa9", {}},
      {"printf 'caf\\351\\n'", "error: org.freedesktop.DBus.Error.InvalidArgs", {Failure(-22)}},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(caller.Call(Line(c.body)) == c.reply) << c.body;
    EXPECT_EQ(TakeLog(), c.log) << c.body;
  }
}

TEST_F(CommandMethodTest, RunsEveryOptionWordInItsFormAndInNoOther) {
  const std::string mac = "aa:bb:cc:dd:ee:0f";
  const std::string keys = " " + k16 + " " + k64 + " any";
  const struct {
    std::string allowed, refused;
  } cases[] = {
      {"brimletd --exit ", "echo --exit"},
      {"echo --add", "echo --add y"},
      {"echo -a", "echo -a y"},
      {"echo --delete",
       "echo --delete "
       " "},
      {"echo -d", "echo -d y"},
      {"echo --search", "echo --search y"},
      {"echo -s", "echo -s y"},
      {"echo --nopluginInput", "echo --nopluginInput y"},
      {"echo --nopluginNull", "echo --nopluginNull y"},
      {"echo --nohidden wlan0", "echo --nohidden wlan-0"},
      {"echo --btup hci0", "echo --btup hci0 hci1"},
      {"echo --delVirt orvix0", "echo --delVirt"},
      {"echo --unmanaged " + mac, "echo --unmanaged 00:00:00:00:00:00"},
      {"echo --kill 1234", "echo --kill +12"},
      {"echo --randomPort 8080abc", "echo --randomPort 65536"},
      {"echo --randomPortDel 0", "echo --randomPortDel -1"},
      {"echo --unblock 99", "echo --unblock 100"},
      {"echo --setIP orvix0 192.168.1.1", "echo --setIP orvix0 192.168.1.256"},
      {"echo --virt wlan0 orvix0", "echo --virt wlan0 orvix1"},
      {"echo --disconbt hci0 " + mac, "echo --disconbt hci0 ff:ff:ff:ff:ff:ff"},
      {"echo --hostapd 36" + keys, "echo --hostapd 35" + keys},
      {"echo --hostapd 36" + keys + " seventh", "echo --hostapd 36" + keys + " seventh eighth"},
      {"echo --reload 177" + keys + " 1234", "echo --reload 177" + keys},
  };
  Daemon daemon;
  Caller caller;
  for (const auto& c : cases) {
    const bool isShellsOwn = c.allowed.starts_with("brimletd");  // no such program in the PATH
    EXPECT_EQ(caller.Call(c.allowed), isShellsOwn ? "" : c.allowed.substr(5)) << c.allowed;
    EXPECT_EQ(TakeLog(), Lines{}) << c.allowed;
    EXPECT_EQ(caller.Call(c.refused), kFailed) << c.refused;
    EXPECT_EQ(TakeLog(), Lines{Failure(-1)}) << c.refused;
  }
  for (const char* const line : {"echo --nope", "echo  --add", "echo --ADD"}) {
    EXPECT_EQ(caller.Call(line), kFailed) << line;
    EXPECT_EQ(TakeLog(), (Lines{mUnknown, Failure(-1)})) << line;
  }
}

TEST_F(CommandMethodTest, RunsTheLineAsItCame) {
  Daemon daemon;
  // A tab and a line feed are no separators for the policy, but they are for the shell.
  EXPECT_EQ(Caller().Call("echo\tone\necho\ttwo --add"), "one\ntwo --add");
  EXPECT_EQ(Caller().Call("echo --hostapd 36 " + k16 + " " + k64 + "  $((1+1))"),
            "--hostapd 36 " + k16 + " " + k64 + " 2");
}

TEST_F(CommandMethodTest, RefusesALineThatNoShellCanTake) {
  Daemon daemon;
  Caller caller;
  const std::string head = "echo --btup ";
  const std::string longest(131071 - head.size(), 'w');
  EXPECT_EQ(caller.Call(head + longest), kFailed);
  EXPECT_EQ(TakeLog(), (Lines{mTooLong, Failure(-1)})) << "it ran and its output is too long";
  EXPECT_EQ(caller.Call(head + longest + "w"), kFailed);
  EXPECT_EQ(TakeLog(), Lines{Failure(-1)});
  EXPECT_EQ(caller.Call(": --btup " + longest), "");
  EXPECT_EQ(TakeLog(), Lines{});
}

TEST_F(CommandMethodTest, OutlivesHugeWords) {
  Daemon daemon;
  Caller caller;
  const std::string huge(20'000'000, 'w');
  for (const std::string& line : {"x --btup " + huge, "x --setIP orvix0 " + huge, "x " + huge,
                                  "x --add" + std::string(20'000'000, ' ')}) {
    EXPECT_EQ(caller.Call(line), kFailed);
  }
  EXPECT_EQ(caller.Call("echo --add"), "--add");
}

TEST_F(CommandMethodTest, StopsForTheExactLineAlone) {
  Daemon daemon;
  Caller caller;
  for (const char* const line :
       {"brimletd --exit ", "Brimletd --exit", "brimletd  --exit", "brimletd --exit\n"}) {
    EXPECT_FALSE(caller.Call(line).starts_with("error")) << line;
  }
  TakeLog();
  EXPECT_EQ(caller.Call("brimletd --exit"), "error: org.freedesktop.DBus.Error.NoReply");
  EXPECT_EQ(daemon.WaitForEnd(), 0);
  EXPECT_EQ(TakeLog(), Lines{});
}

TEST_F(CommandMethodTest, LeavesAWrongSignatureToTheBusLibrary) {
  Daemon daemon;
  EXPECT_EQ(
      RunAndRead(
          {"sh", "-c",
           "busctl call com.tolvane.brimlet /com/tolvane/brimlet com.tolvane.brimlet brimletd "
           "i 7 2>&1 | cut -c1-40"}),
      "Call failed: Invalid arguments 'i' to ca\n");
  EXPECT_EQ(TakeLog(), Lines{});
}

TEST_F(CommandMethodTest, AnswersEachCallerInItsOrder) {
  constexpr int kCallers = 8;
  constexpr int kCallsEach = 13;
  Daemon daemon;
  Caller callers[kCallers];
  for (int call = 0; call < kCallsEach; ++call) {
    for (int i = 0; i < kCallers; ++i) {
      callers[i].Send(call % 4 == 3
                          ? "echo --nope"
                          : "echo --btup c" + std::to_string(i) + "_" + std::to_string(call));
    }
  }
  for (int i = 0; i < kCallers; ++i) {
    Lines expected;
    for (int call = 0; call < kCallsEach; ++call) {
      expected.push_back(
          std::to_string(call) + ": " +
          (call % 4 == 3 ? kFailed : "--btup c" + std::to_string(i) + "_" + std::to_string(call)));
    }
    EXPECT_EQ(callers[i].Receive(), expected);
  }
}

// Everything that the daemon sends to its caller, seen by a monitor of the bus.
TEST_F(CommandMethodTest, RepliesOnce) {
  Daemon daemon;
  Caller caller;
  Caller monitor;
  ASSERT_GE(sd_bus_call_method(monitor.Get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus.Monitoring", "BecomeMonitor", nullptr, nullptr,
                               "asu", 1, "sender='com.tolvane.brimlet'", 0),
            0);
  const Lines lines = {"echo --nope", "echo --add y", Line("printf '\\351\\n'"), "echo --add"};
  for (const std::string& line : lines) {
    caller.Call(line);
  }
  const char* name = nullptr;
  sd_bus_get_unique_name(caller.Get(), &name);
  Lines seen;
  while (seen.empty() || seen.back() != "--add") {
    sd_bus_message* message = nullptr;
    ASSERT_GE(sd_bus_process(monitor.Get(), &message), 0);
    if (message == nullptr) {
      sd_bus_wait(monitor.Get(), UINT64_MAX);
    } else if (std::string(name) == sd_bus_message_get_destination(message)) {
      const char* text = "an error";
      sd_bus_message_read(message, "s", &text);
      seen.emplace_back(text);
    }
    sd_bus_message_unref(message);
  }
  EXPECT_EQ(seen.size(), lines.size()) << testing::PrintToString(seen);
}

TEST(BrimletPopen, ReportsAMissingMessage) {
  LogCapture log;
  EXPECT_EQ(Velmar::BrimletPopen(nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(log.Take(), Lines{"[ERROR] [CommandMethod] ORVIX_BRIMLETD: BrimletPopen error! "});
}

}  // namespace
}  // namespace BrimletTest
