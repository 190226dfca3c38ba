#include "common/Logger.h"

#include <thread>

#include "tests/FolderTest.h"

using namespace Velmar;

struct LoggerTest : FolderTest {
  const int isZoneSet = setenv("TZ", "TEST-05:45", 1);  // before the first line
  void Write(const std::string& text) { logger.Write(4, "U", 1, "M", "%s", text.c_str()); }
  const std::string path = folder / "log";
  Logger& logger = *Singleton<Logger>::Instance();
};

TEST_F(LoggerTest, WritesOneLinePerCallButNoneForDebugOrNullOrWhatIsTooLong) {
  const char* const null = nullptr;
  const std::string u = "U", m = "M", full(4095, 'y');
  void (*const write)(const char*, const char*, const char*, ...) = LogError;  // unchecked
  Run("echo kept >log");
  logger.Init(path);
  for (const int level : {-1, 1, 2, 3, 4, 5, 7}) logger.Write(level, "U", -level, "M", "%s%%", "a");
  logger.Write(4, null, 1, m, m), logger.Write(4, u, 1, null, m), logger.Write(4, u, 1, m, null);
  write(null, "U", "m"), write("M", null, "m"), write("M", "U", null), LogDebug("M", "U", "m");
  logger.Write(4, u, 1, m, full), Write(full + "x"), write("M", "U", "%sx", full.c_str());
  LogInfo("M", "U", "info %d", 1), LogWarning("M", "U", "%c%%", 37), LogError("M", "U", "%s", "%s");
  Run("sed -E 's/^.[0-9 :.-]{24}. .//; s/y{4095}$/full/' log | diff " SOURCE_DIR
      "/tests/data/lines.log -");
}

TEST_F(LoggerTest, GetsOverWhatStandsInItsWay) {
  const std::string full = "echo one >log; truncate -s 33554433 log; ", own = "log 600 49\n",
                    old = "log.old 600 33554433\n";
  // clang-format off
  const Texts cases[] = {  // commands before Init() and before Write(), and what is there then
      {"mkdir -p log/a/b", ":", own}, {"mkfifo log", "rm log; " + full, own + old},
      {"mkfifo log", "rm log; truncate -s 33554432 log", "log 644 33554432\n"},
      {"truncate -s 33554432 log", ":", "log 600 33554481\n"}, {full + "mkdir log.old", ":", own},
      {full + "mkfifo log.old", ":", own + old}, {full, "ln log log1", own + old + "log1 600 49\n"},
      {":", "mv log log1; " + full, "log 644 33554433\nlog1 600 49\n"},
      {"install -m 200 /dev/null log; install -m 666 /dev/null log.old", full, own + old},
      {"ln file log; ln file log.old", full, own + old},
      {"ln -s file log; ln -s file log.old", full, own + old}};
  // clang-format on
  LeaveRoot();
  close(0);  // to have the log there
  for (const Texts& steps : cases) {
    Run("rm -rf *; echo foreign >file; " + steps[0]);
    logger.Init(path);
    Run(steps[1]);
    Write("line");
    Run("{ find log* ! -type d -printf '%p %m %s\\n'; stat -c %a file | cat file -; } >found");
    EXPECT_EQ(ReadWhole("found"), steps[2] + "foreign\n644\n") << steps[0] << steps[1];
    Run("test ! -f log.old || test $(head -n 1 log.old) = one -a $(stat -c %b log.old) -lt 99");
  }
}

TEST_F(LoggerTest, FollowsNoLinkThatIsSwappedInBeforeAnyCall) {
  for (const std::string link : {"ln -sf file ", "ln -f file "})
    DisturbEachOpen(
        0, "rm -f log*; truncate -s 33554433 log; echo foreign >file; chmod 644 file",
        [&] { logger.Init(path), Write("line"); }, link + "log; " + link + "log.old",
        "test $(cat file)$(stat -c %a file) = foreign644");
}

TEST_F(LoggerTest, DropsALineWholeWhereOnlyAPartFindsRoomAndGoesOn) {
  logger.Init(path);
  Run("prlimit --pid $PPID --fsize=100:");
  Write("one"), Write(std::string(100, 'x'));
  Run("prlimit --pid $PPID --fsize=unlimited:");
  Write("two");
  Run("test \"$(cut -c36- log)\" = \"$(printf '[U:1] M: one\\n[U:1] M: two')\"");
}

TEST_F(LoggerTest, NeverMixesTheLinesOfTwoThreadsAndStampsEachWithTheLocalTime) {
  const auto write = [&](char letter) {
    for (int i = 0; i < 100; ++i) Write(std::string(200, letter));
  };
  logger.Init(path);
  for (int round = 0; round < 30; ++round) {  // into the next second
    Run("date '+[%y-%m-%d %T.%6N]' >>log; sleep 0.04");
    const std::jthread one(write, 'a'), other(write, 'b');
  }
  Run("for c in a b; do test 3000 = $(grep -Ec \": $c{200}$\" log) || exit 1; done");
  Run("cut -c -26 log | LC_ALL=C sort -c");
}
