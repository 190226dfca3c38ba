#include "common/Logger.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <thread>

#include "tests/Support.h"

namespace BrimletTest {
namespace {

using namespace Velmar;
namespace fs = std::filesystem;

constexpr std::int64_t kRotationBound = 33554432;
const std::string kModule = "UTILS";

Lines Logged(const std::string& path) {
  Lines lines = LinesOf(ReadWhole(path));
  for (std::string& line : lines) {
    line = StripLogLine(line);
  }
  return lines;
}

class LoggerTest : public testing::Test {
 protected:
  TempFolder mFolder;
  std::string mPath = mFolder / "brimletd.log";
  std::string mOld = mPath + ".old";
  std::string mCanary = mFolder / "canary";
  Logger mLogger;
};

TEST_F(LoggerTest, WritesOneLinePerCallAndDropsDebug) {
  mLogger.Write(4, "early", 1, "UTILS", "before Init");
  WriteWhole(mPath, "kept\n");
  mLogger.Init(mPath);
  for (const int level : {-1, 0, 1, 2, 3, 4, 5, 7}) {
    mLogger.Write(level, "Unit", level - INT_MAX, "UTILS", "level %d\tof %s", level, "it");
  }
  mLogger.Write(2, std::string("Unit"), 7, kModule, std::string("%c%%%clost"), 'x', 0);
  const Lines lines = LinesOf(ReadWhole(mPath));
  ASSERT_EQ(lines.size(), 7U);
  EXPECT_EQ(lines[0], "kept");
  const std::string time = R"(\[\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6}\] )";
  const char* const rests[] = {"[INFO] [Unit:-2147483645] UTILS: level 2\tof it",
                               "[WARNING] [Unit:-2147483644] UTILS: level 3\tof it",
                               "[ERROR] [Unit:-2147483643] UTILS: level 4\tof it",
                               "[CRITICAL] [Unit:-2147483642] UTILS: level 5\tof it",
                               "[ ] [Unit:-2147483640] UTILS: level 7\tof it",
                               "[INFO] [Unit:7] UTILS: x%"};
  for (std::size_t i = 0; i < std::size(rests); ++i) {
    const std::string& line = lines[i + 1];
    EXPECT_TRUE(std::regex_match(line.substr(0, 27), std::regex(time))) << line;
    EXPECT_EQ(line.substr(27), rests[i]);
  }
}

TEST_F(LoggerTest, DropsAMessageOfMoreThan4095Characters) {
  mLogger.Init(mPath);
  mLogger.Write(2, "Unit", 1, "UTILS", "%s", std::string(4096, 'x').c_str());
  EXPECT_EQ(ReadWhole(mPath), "");
  mLogger.Write(2, "Unit", 1, "UTILS", "%s", std::string(4095, 'y').c_str());
  EXPECT_EQ(Logged(mPath), Lines{"[INFO] [Unit] UTILS: " + std::string(4095, 'y')});
}

TEST(FreeLogFunctions, WriteWithLineNumber0ThroughTheProcessLogger) {
  LogCapture capture;
  LogDebug("M", "f", "debug");
  LogInfo("M", "f", "info %d", 1);
  LogWarning("M", "f", "warning %%");
  LogError("M", "f", "%s", "%s is not expanded twice");
  void (*const log)(const char*, const char*, const char*, ...) = LogError;  // unchecked
  log(nullptr, "f", "m");
  log("M", nullptr, "m");
  log("M", "f", nullptr);
  LogError("M", "f", "%s", std::string(4096, 'x').c_str());
  EXPECT_EQ(capture.Take(), (Lines{"[INFO] [f] M: info 1", "[WARNING] [f] M: warning %",
                                   "[ERROR] [f] M: %s is not expanded twice"}));
  LogInfo("M", "f", "after");
  Singleton<Logger>::Destroy();
  EXPECT_EQ(Singleton<Logger>::sm_ins, nullptr);
  LogInfo("M", "f", "to a fresh logger, which has no file");
}

// Whatever stands at the path of the log or of its old generation, and however large the log is,
// nothing outside of these paths may change, and nothing may block.
class ObstacleTest : public LoggerTest {
 protected:
  struct Obstacle {
    const char* what;
    std::function<void(const std::string&)> put;
    bool isLogCleared, isOldCleared;  // in place of it stands a file of the logger's own then
  };

  ObstacleTest() {
    fs::create_directory(mOutside);
    WriteWhole(mOutside + "/content", "canary");
    WriteWhole(mCanary, "canary");
    chmod(mCanary.c_str(), 0644);
  }

  void ExpectNothingChangedOutside(const char* what) const {
    EXPECT_EQ(ReadWhole(mCanary), "canary") << what;
    EXPECT_EQ(ModeOf(mCanary), S_IFREG | 0644U) << what;
    EXPECT_EQ(ReadWhole(mOutside + "/content"), "canary") << what;
    EXPECT_FALSE(fs::exists(mNowhere)) << what;
  }

  static Lines OnlyLine() { return {"[ERROR] [Unit] UTILS: line"}; }

  std::string mOutside = mFolder / "outside";
  std::string mNowhere = mFolder / "nowhere";
  const std::vector<Obstacle> mObstacles = {
      {"nothing", [](const auto&) {}, true, true},
      {"a link to a file", [&](const auto& p) { fs::create_symlink(mCanary, p); }, true, true},
      {"a link to a folder", [&](const auto& p) { fs::create_symlink(mOutside, p); }, true, true},
      {"a link to nothing", [&](const auto& p) { fs::create_symlink(mNowhere, p); }, true, true},
      {"a link to a device", [](const auto& p) { fs::create_symlink("/dev/null", p); }, true, true},
      {"a folder", [](const auto& p) { fs::create_directories(p + "/a/b"); }, true, false},
      {"a FIFO", [](const auto& p) { mkfifo(p.c_str(), 0644); }, false, true},
      {"a hard link", [&](const auto& p) { fs::create_hard_link(mCanary, p); }, true, true},
      {"a file of everybody's",
       [](const auto& p) { WriteWhole(p, ""), fs::permissions(p, fs::perms(0666)); }, true, true},
  };
};

TEST_F(ObstacleTest, AtTheLogIsClearedOrLeftAlone) {
  for (const Obstacle& obstacle : mObstacles) {
    obstacle.put(mPath);
    mLogger.Init(mPath);
    mLogger.Write(4, "Unit", 1, "UTILS", "line");
    ExpectNothingChangedOutside(obstacle.what);
    if (obstacle.isLogCleared) {
      EXPECT_EQ(Logged(mPath), OnlyLine()) << obstacle.what;
      EXPECT_EQ(ModeOf(mPath), S_IFREG | 0600U) << obstacle.what;
    }
    fs::remove(mPath);
  }
  EXPECT_EQ(fs::hard_link_count(mCanary), 1U);
}

TEST_F(ObstacleTest, AtTheOldGenerationGivesWayToANewFile) {
  for (const Obstacle& obstacle : mObstacles) {
    obstacle.put(mOld);
    WriteWhole(mPath, "");
    fs::resize_file(mPath, kRotationBound + 1);
    mLogger.Init(mPath);
    mLogger.Write(4, "Unit", 1, "UTILS", "line");
    ExpectNothingChangedOutside(obstacle.what);
    EXPECT_EQ(Logged(mPath), OnlyLine()) << obstacle.what;
    struct stat status {};
    ASSERT_EQ(lstat(mOld.c_str(), &status), 0) << obstacle.what;
    if (obstacle.isOldCleared) {
      EXPECT_EQ(status.st_mode, S_IFREG | 0600U) << obstacle.what;
      EXPECT_EQ(status.st_size, kRotationBound + 1) << obstacle.what;
      EXPECT_LT(status.st_blocks, 100) << "holes were given room: " << obstacle.what;
    }
    fs::remove_all(mOld);
  }
}

TEST_F(ObstacleTest, AMuteLogComesBackWithTheRotationOfAFullFile) {
  const std::string full = mFolder / "full";
  WriteWhole(full, "content");
  fs::resize_file(full, kRotationBound + 1);
  mkfifo(mPath.c_str(), 0600);
  mLogger.Init(mPath);
  fs::remove(mPath);
  auto obstacles = mObstacles;
  obstacles.push_back(
      {"a link to a full file", [&](const auto& p) { fs::create_symlink(full, p); }, false, false});
  obstacles.push_back({"a hard link to a full file",
                       [&](const auto& p) { fs::create_hard_link(full, p); }, false, false});
  for (const Obstacle& obstacle : obstacles) {
    obstacle.put(mPath);
    const unsigned mode = ModeOf(mPath);
    mLogger.Write(4, "Unit", 1, "UTILS", "line");
    ExpectNothingChangedOutside(obstacle.what);
    EXPECT_EQ(ModeOf(mPath), mode) << obstacle.what;
    EXPECT_EQ(fs::file_size(full), kRotationBound + 1U) << obstacle.what;
    EXPECT_FALSE(fs::exists(mOld)) << obstacle.what;
    fs::remove_all(mPath);
  }
  fs::rename(full, mPath);
  mLogger.Write(4, "Unit", 1, "UTILS", "line");
  EXPECT_EQ(Logged(mPath), OnlyLine());
  EXPECT_EQ(ModeOf(mPath), S_IFREG | 0600U);
  EXPECT_EQ(fs::file_size(mOld), kRotationBound + 1U);
}

// An ordinary user cannot read such a file before it has its new mode.
TEST_F(LoggerTest, WritesToAFileThatMayOnlyBeWritten) {
  const uid_t user = geteuid() == 0 ? 65534 : geteuid();
  WriteWhole(mPath, "kept\n");
  fs::resize_file(mPath, kRotationBound + 1);
  chmod(mPath.c_str(), 0200);
  ASSERT_EQ(chown(mPath.c_str(), user, gid_t(-1)), 0);
  ASSERT_EQ(chown(mFolder.Path().c_str(), user, gid_t(-1)), 0);
  const uid_t self = geteuid();
  ASSERT_EQ(seteuid(user), 0);
  mLogger.Init(mPath);
  mLogger.Write(2, "Unit", 1, "UTILS", "line");
  ASSERT_EQ(seteuid(self), 0);
  EXPECT_EQ(Logged(mPath), Lines{"[INFO] [Unit] UTILS: line"});
  EXPECT_EQ(ModeOf(mPath), S_IFREG | 0600U);
  EXPECT_EQ(ReadWhole(mOld).substr(0, 5), "kept\n");
}

// A file and a link to the canary change places as fast as they can while the log is opened.
TEST_F(LoggerTest, NeverFollowsALinkSwappedIn) {
  WriteWhole(mCanary, "canary");
  const std::string link = mFolder / "link";
  std::atomic<bool> isDone = false;
  std::thread swapper([&] {
    while (!isDone) {
      renameat2(AT_FDCWD, mPath.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
    }
  });
  for (int round = 0; round < 40000; ++round) {
    std::error_code ignored;
    fs::remove(link, ignored);
    fs::create_symlink(mCanary, link, ignored);
    mLogger.Init(mPath);
    mLogger.Write(2, "Unit", 1, "UTILS", "line");
  }
  isDone = true;
  swapper.join();
  EXPECT_EQ(ReadWhole(mCanary), "canary");
}

TEST_F(LoggerTest, RotatesBeforeTheFirstLineBehindTheBound) {
  WriteWhole(mPath, "first\n");
  mLogger.Init(mPath);
  ASSERT_EQ(truncate(mPath.c_str(), kRotationBound), 0);
  struct stat before {};
  ASSERT_EQ(stat(mPath.c_str(), &before), 0);
  mLogger.Write(2, "Unit", 1, "UTILS", "still there");
  EXPECT_FALSE(fs::exists(mOld));
  const std::string whole = ReadWhole(mPath);

  mLogger.Write(2, "Unit", 1, "UTILS", "%s", std::string(4096, 'x').c_str());
  EXPECT_EQ(ReadWhole(mPath), "") << "a line that is dropped rotates too";
  mLogger.Write(2, "Unit", 1, "UTILS", "fresh");
  EXPECT_EQ(Logged(mPath), Lines{"[INFO] [Unit] UTILS: fresh"});
  EXPECT_TRUE(ReadWhole(mOld) == whole);
  EXPECT_EQ(ModeOf(mOld), S_IFREG | 0600U);
  struct stat after {};
  ASSERT_EQ(stat(mPath.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(ModeOf(mPath), S_IFREG | 0600U);
}

// As on a full disk: the first line fits in part, which is taken back, and once there is room the
// log goes on.
TEST_F(LoggerTest, DropsALineWholeWhereOnlyAPartFindsRoom) {
  mLogger.Init(mPath);
  mLogger.Write(2, "Unit", 1, "UTILS", "before");
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  const rlimit small = {100, old.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  mLogger.Write(2, "Unit", 1, "UTILS", "%s", std::string(200, 'x').c_str());
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
  std::signal(SIGXFSZ, handler);
  mLogger.Write(2, "Unit", 1, "UTILS", "after");
  EXPECT_EQ(Logged(mPath), (Lines{"[INFO] [Unit] UTILS: before", "[INFO] [Unit] UTILS: after"}));
}

TEST_F(LoggerTest, TakesTheSizeFromItsOwnFileAndNotFromThePath) {
  mLogger.Init(mPath);
  fs::rename(mPath, mFolder / "moved");
  WriteWhole(mPath, "");
  fs::resize_file(mPath, kRotationBound * 100);
  mLogger.Write(2, "Unit", 1, "UTILS", "line");
  EXPECT_FALSE(fs::exists(mOld));
  EXPECT_EQ(Logged(mFolder / "moved").size(), 1U);
}

TEST_F(LoggerTest, NeverMixesTheLinesOfTwoThreads) {
  constexpr int kCount = 2000;
  mLogger.Init(mPath);
  const auto write = [&](char letter) {
    for (int i = 0; i < kCount; ++i) {
      mLogger.Write(2, "Unit", 1, "UTILS", "%s", std::string(200, letter).c_str());
    }
  };
  std::thread other(write, 'b');
  write('a');
  other.join();
  std::map<std::string, int> counts;
  for (const std::string& line : Logged(mPath)) {
    ++counts[line];
  }
  const std::string head = "[INFO] [Unit] UTILS: ";
  EXPECT_EQ(counts, (std::map<std::string, int>{{head + std::string(200, 'a'), kCount},
                                                {head + std::string(200, 'b'), kCount}}));
}

TEST_F(LoggerTest, KeepsItsDescriptorFromChildProcesses) {
  mLogger.Init(mPath);
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    if (fs::read_symlink(entry) == mPath) {
      EXPECT_TRUE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC);
      return;
    }
  }
  FAIL() << "the log is not open";
}

}  // namespace
}  // namespace BrimletTest
