// The helper against the running daemon, against services that only pretend to be it, and against
// nothing at all.
#include "utils/BrimletdClient.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <clocale>
#include <filesystem>
#include <thread>

#include "tests/PrivateBus.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;
using namespace Velmar::Utils;

constexpr const char* kName = "com.tolvane.brimlet";
// These texts are the bus's.
const char* const kDisconnected =
    IsOnBroker() ? "Remote peer disconnected"
                 : "Message recipient disconnected from message bus without replying";
const char* const kNotThere =
    IsOnBroker() ? "The name is not activatable"
                 : "The name com.tolvane.brimlet was not provided by any .service files";

std::size_t CountOwnDescriptors() {
  const fs::directory_iterator descriptors("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

class BrimletdClientTest : public BusTest {
 protected:
  ~BrimletdClientTest() override { SetBrimletdPid(0); }

  static std::string Line(const std::string& level, const std::string& message) {
    return "[" + level + "] [BrimletdClient] UTILS: " + message;
  }
  static std::string CallFailed(const std::string& reason) {
    return Line("ERROR", "Failed to call method, reason: " + reason);
  }

  // Calls and compares everything that the helper gives back, logs and leaves open.
  void Expect(const std::string& command, bool isAnswered, const std::string& result,
              const std::string& error, const Lines& log) {
    std::string gotResult = "old";
    std::string gotError = "old";
    const std::size_t descriptors = CountOwnDescriptors();
    const int r = ExecuteByBrimletd(command, gotResult, gotError);
    EXPECT_EQ(r >= 0, isAnswered) << command << ": " << r;
    EXPECT_EQ(gotResult, result) << command;
    EXPECT_EQ(gotError, error) << command;
    EXPECT_EQ(mLog.Take(), log) << command;
    EXPECT_EQ(CountOwnDescriptors(), descriptors) << command;
  }

  LogCapture mLog;
  std::atomic<bool> mServed = false;
};

TEST_F(BrimletdClientTest, GivesBackWhatTheDaemonReplies) {
  Daemon daemon;
  SetBrimletdPid(daemon.Pid());
  Expect("echo --setIP orvix0 192.168.1.1", true, "--setIP orvix0 192.168.1.1", "", {});
  Expect("true --add", true, "", "", {});
  Expect("echo --add now", true, "ExecutePopen failed!", "", {});
  Expect(Script("latin1", "printf '\\351\\n'") + " --add", false, "", "Invalid argument",
         {CallFailed("Invalid argument")});
  Expect("caf\xe9 --add", false, "", "", {Line("ERROR", "Failed to sd_bus_message_append")});

  std::string both = "echo --add";
  std::string error;
  EXPECT_GE(ExecuteByBrimletd(both, both, error), 0);
  EXPECT_EQ(both, "--add");

  Expect("brimletd --exit", false, "", kDisconnected, {CallFailed(kDisconnected)});
  EXPECT_EQ(daemon.WaitForEnd(), 0);
  Expect("echo --add", false, "", kNotThere, {CallFailed(kNotThere)});
  mBus->Kill();
  fs::remove(mHome / "bus");
  Expect("echo --add", false, "", "",
         {Line("ERROR", "Failed to connect to system bus: No such file or directory")});
}

TEST_F(BrimletdClientTest, ThrowsAwayTheRepliesOfOtherProcesses) {
  Daemon daemon;
  const std::string pid = std::to_string(daemon.Pid());
  for (const int expected : {0, -1, getpid()}) {
    SetBrimletdPid(expected);
    const std::string ran = mHome / "ran" + std::to_string(expected);
    Expect("touch${IFS}" + ran + ";echo --add", true, "", "",
           {Line("ERROR", "Failed to msg reply id: " + pid + " != brimletd pid " +
                              std::to_string(expected))});
    EXPECT_TRUE(fs::exists(ran));
  }
}

int AnswerWithANumber(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  return sd_bus_reply_method_return(call, "i", 7);
}

int AnswerAndLeave(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  sd_bus_reply_method_return(call, "s", "out of reach");
  sd_bus_flush(sd_bus_message_get_bus(call));
  sd_bus_close(sd_bus_message_get_bus(call));
  return 1;
}

TEST_F(BrimletdClientTest, ReportsAReplyWithoutAStringOrWithoutASender) {
  static const sd_bus_vtable tables[][3] = {
      {SD_BUS_VTABLE_START(0),
       SD_BUS_METHOD("brimletd", "s", "i", AnswerWithANumber, SD_BUS_VTABLE_UNPRIVILEGED),
       SD_BUS_VTABLE_END},
      {SD_BUS_VTABLE_START(0),
       SD_BUS_METHOD("brimletd", "s", "s", AnswerAndLeave, SD_BUS_VTABLE_UNPRIVILEGED),
       SD_BUS_VTABLE_END}};
  const struct {
    bool isAnswered;
    Lines log;
  } cases[] = {
      {false, {Line("ERROR", "sd_bus_message_read failed.")}},
      {true,
       {Line("ERROR", "sd_bus_query_sender_creds failed: 6, creds = (nil)"),
        Line("ERROR", "Failed to msg reply id: -6 != brimletd pid " + std::to_string(getpid()))}}};
  SetBrimletdPid(getpid());
  std::size_t i = 0;
  for (int tries = 0; i < std::size(cases) && tries < 1000; ++tries) {
    mServed = false;
    Caller service;
    ASSERT_GE(sd_bus_add_object_vtable(service.Get(), nullptr, "/com/tolvane/brimlet", kName,
                                       tables[i], nullptr),
              0);
    ASSERT_GE(sd_bus_request_name(service.Get(), kName, 0), 0);
    std::thread serve([&] {
      // Until the call is answered.
      while (sd_bus_process(service.Get(), nullptr) >= 0 && !mServed) {
        sd_bus_wait(service.Get(), 10000);
      }
    });
    std::string result;
    std::string error;
    EXPECT_EQ(ExecuteByBrimletd("echo --add", result, error) >= 0, cases[i].isAnswered);
    mServed = true;
    serve.join();
    // The bus may tell who the sender is before it notices that the sender has left.
    if (result == "out of reach") {
      continue;
    }
    EXPECT_EQ(result + error, "");
    EXPECT_EQ(mLog.Take(), cases[i].log);
    ++i;
  }
  EXPECT_EQ(i, std::size(cases));
}

TEST_F(BrimletdClientTest, TellsATimeOutInTheSameWordsInEveryLanguage) {
  const std::string locales = mHome / "locales";
  fs::create_directory(locales);
  RunAndRead({"localedef", "-i", "zh_CN", "-f", "UTF-8", locales + "/zh_CN.UTF-8"});
  RunAndRead({"localedef", "-i", "de_DE", "-f", "UTF-8", locales + "/de_DE.UTF-8"});
  setenv("LOCPATH", locales.c_str(), 1);
  Caller silent;  // owns the name and never looks at a call
  ASSERT_GE(sd_bus_request_name(silent.Get(), kName, 0), 0);
  const std::pair<const char*, std::string> cases[] = {
      {"C", "Connection timed out"},
      {"zh_CN.UTF-8", "连接超时"},
      {"de_DE.UTF-8", "Die Wartezeit für die Verbindung ist abgelaufen"}};
  for (const auto& [locale, text] : cases) {
    ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr) << locale;
    const auto start = std::chrono::steady_clock::now();
    Expect("echo --add", false, "", "Connection timed out",
           {CallFailed(text), Line("WARNING",
                                   "popoen error, please retry orvix, result:, "
                                   "errormessage:" +
                                       text)});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  }
  std::setlocale(LC_ALL, "C");
  unsetenv("LOCPATH");
}

TEST(ReplySender, IsNobodyWithoutAReply) { EXPECT_EQ(GetReplySenderPid(nullptr), -1); }

}  // namespace
}  // namespace BrimletTest
