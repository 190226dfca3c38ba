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
  LeaveRoot();
  descriptors -= close(0) == 0 ? 1 : 0;  // to have the log there
  Follow("obstacles.txt", [&](const std::string& before_start, const std::string& before_line) {
    Run("rm -rf *; echo foreign >file; " + before_start);
    logger.Init(path);
    Run(before_line);
    Write("line");
    Run("test ! -f log.old || test $(head -n 1 log.old) = one -a $(stat -c %b log.old) -lt 99");
    Run("{ find log* ! -type d -printf '%p %m %s\\n'; stat -c %a file | cat file -; } >found");
    return ReadWhole("found");
  });
}

TEST_F(LoggerTest, FollowsNoLinkThatIsSwappedInBeforeAnyOpen) {
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
