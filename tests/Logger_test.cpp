#include "common/Logger.h"

#include <sys/time.h>

#include <thread>

#include "tests/FolderTest.h"

using namespace Velmar;

const int kZone = setenv("TZ", "TEST-05:45", 1);  // 20700 s, before the first line

struct LoggerTest : FolderTest {
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
  write(null, "U", "m"), write("M", null, "m"), write("M", "U", null);
  Write(full + "x"), Write(full), write("M", "U", "%sx", full.c_str()), LogDebug("M", "U", "m");
  LogInfo("M", "U", "info %d", 1), LogWarning("M", "U", "%c%%", 37), LogError("M", "U", "%s", "%s");
  const std::regex time(R"(\[\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}\] \[)");
  EXPECT_EQ(std::regex_replace(ReadWhole(path), time, ""),
            "kept\nINFO] [U:-2] M: a%\nWARNING] [U:-3] M: a%\nERROR] [U:-4] M: a%\n"
            "CRITICAL] [U:-5] M: a%\n ] [U:-7] M: a%\nERROR] [U:1] M: " +
                full + "\nINFO] [U:0] M: info 1\nWARNING] [U:0] M: %%\nERROR] [U:0] M: %s\n");
}

TEST_F(LoggerTest, StampsALineWithTheLocalTimeAtWhichItIsWritten) {
  logger.Init(path);
  timeval before{}, after{};
  tm time{};
  for (std::size_t i = 0; i < 110; ++i) {  // into the next second
    usleep(10000);
    gettimeofday(&before, nullptr);
    Write("line");
    gettimeofday(&after, nullptr);
    const std::string line = ReadWhole(path).substr(49 * i);
    const int micros = std::stoi(strptime(line.c_str(), "[%y-%m-%d %T.", &time));
    const timeval stamp = {timegm(&time) - 20700, micros};
    const auto total = [](const timeval& one) { return one.tv_sec * 1000000 + one.tv_usec; };
    EXPECT_TRUE(total(before) <= total(stamp) && total(stamp) <= total(after)) << line;
  }
}

TEST_F(LoggerTest, GetsOverWhatStandsInItsWay) {
  const std::string full = "echo one >log; truncate -s 33554433 log; ", own = "log 600 49\n",
                    old = "log.old 600 33554433\n";
  // clang-format off
  std::vector<Texts> cases = {  // commands before Init() and before Write(), and what is there then
      {":", ":", own}, {"mkdir -p log/a/b", ":", own}, {"install -m 200 /dev/null log", ":", own},
      {"mkfifo log", ":", "log 644 0\n"}, {"mkfifo log", "rm log; " + full, own + old},
      {"mkfifo log", "rm log; truncate -s 33554432 log", "log 644 33554432\n"},
      {"truncate -s 33554432 log", ":", "log 600 33554481\n"}, {full + "mkfifo log.old", ":", own + old},
      {full, "ln log log1", own + old + "log1 600 49\n"}, {full + "mkdir log.old", ":", own + "log.old 755\n"},
      {":", "mv log log1; " + full, "log 644 33554433\nlog1 600 49\n"}};
  // clang-format on
  for (const std::string put :
       {"ln file", "ln -s file", "ln -s dir", "ln -s none", "install -m 666 empty"})
    cases.push_back({put + " log; " + put + " log.old", full, own + old});
  LeaveRoot();
  close(0);  // to have the log there
  for (const Texts& steps : cases) {
    Run("rm -rf *; echo foreign >file; mkdir dir; touch dir/file empty; " + steps[0]);
    logger.Init(path);
    Run(steps[1]);
    Write("line");
    Run("find log* -maxdepth 0 -type d -printf '%p %m\\n' -o -printf '%p %m %s\\n' >found");
    EXPECT_EQ(ReadWhole(folder / "found"), steps[2]) << steps[0] << steps[1];
    Run("test ! -f log.old || test $(head -n 1 log.old) = one -a $(stat -c %b log.old) -lt 99");
    Run("test $(cat file dir/file)$(stat -c %a file) = foreign644 -a ! -e none");
  }
}

TEST_F(LoggerTest, FollowsNoLinkThatIsSwappedInBeforeAnyCall) {
  for (const std::string link : {"ln -sf file ", "ln -f file "})
    DisturbEachCall(
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

TEST_F(LoggerTest, NeverMixesTheLinesOfTwoThreads) {
  const auto write = [&](char letter) {
    for (int i = 0; i < 2000; ++i) Write(std::string(200, letter));
  };
  logger.Init(path);
  std::thread other(write, 'b');
  write('a');
  other.join();
  Run("for c in a b; do test 2000 = $(grep -Ec \": $c{200}$\" log) || exit 1; done");
}
