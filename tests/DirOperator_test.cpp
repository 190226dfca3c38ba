#include "storage/DirOperator.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "tests/Support.h"
#include "utils/CommandOutput.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;

class DirOperatorTest : public testing::Test {
 protected:
  DirOperatorTest() { setenv("HOME", mFolder.Path().c_str(), 1); }

  static std::string Error(const std::string& message) {
    return "[ERROR] [DirOperator] UTILS: " + message;
  }
  static std::string Info(const std::string& message) {
    return "[INFO] [DirOperator] UTILS: " + message;
  }

  Velmar::DirOperator mDirs;
  TempFolder mFolder;
  LogCapture mLog;
};

TEST_F(DirOperatorTest, CreatesTheTreeOnDemand) {
  const std::string home = mFolder.Path();
  EXPECT_EQ(mDirs.GetConfDir(), "");
  EXPECT_EQ(mLog.Take(), Lines{Error("dir:" + home + "/Brimlet/Orvix/conf/ not exist!")});
  EXPECT_EQ(mDirs.GetLogDir(), home + "/Brimlet/log");
  EXPECT_EQ(mDirs.GetAppDir(), home + "/Brimlet/");
  EXPECT_EQ(ModeOf(home + "/Brimlet/log"), S_IFDIR | 0700U);
  EXPECT_EQ(mLog.Take(), Lines{});

  const std::string others = home + "/Brimlet/Orvix/others/";
  EXPECT_EQ(mDirs.CreateOthersDir(), 0);
  EXPECT_EQ(mLog.Take(), (Lines{Error("dir:" + others + " not exist!"),
                                Info("CreateOthersDir userdir:" + home + "/"),
                                Info("CreateOthersDir userdir:" + home + "/Brimlet/"),
                                Info("CreateOthersDir userdir:" + home + "/Brimlet/Orvix/"),
                                Info("CreateOthersDir userdir:" + others)}));
  EXPECT_EQ(mDirs.CreateOthersDir(), 0);
  EXPECT_EQ(mLog.Take(), Lines{Info("CreateOthersDir othersdir:" + others + " already exist")});
  EXPECT_EQ(mDirs.GetOthersDir(), others);

  setenv("HOME", (home + "/").c_str(), 1);
  EXPECT_EQ(mDirs.GetLogDir(), home + "//Brimlet/log");
}

TEST_F(DirOperatorTest, ReportsWhatCannotBeCreated) {
  const std::string log = mFolder / "Brimlet/log";
  fs::create_directory(mFolder / "Brimlet");
  WriteWhole(log, "a file");
  EXPECT_EQ(mDirs.GetLogDir(), "");
  EXPECT_EQ(mLog.Take(), Lines{Error("dir:" + log + " not exist!")});
  EXPECT_EQ(mDirs.CreateDir(log, 0700), 100);
  EXPECT_EQ(mDirs.CreateMultiLevelDir(log + "/x"), 100);
  EXPECT_EQ(mDirs.CreateMultiLevelDir(mFolder / "n/e/w/"), 0);
  EXPECT_TRUE(mDirs.IsDirExist(mFolder / "n/e/w"));

  fs::remove_all(mFolder / "Brimlet");
  WriteWhole(mFolder / "Brimlet", "a file");
  EXPECT_EQ(mDirs.CreateOthersDir(), 100);
  EXPECT_EQ(mLog.Take().back(), Info("CreateOthersDir userdir:" + mFolder.Path() + "/Brimlet/"));
}

TEST_F(DirOperatorTest, TakesTheRootForAMissingHome) {
  const std::string missing = mFolder / "missing";
  setenv("HOME", missing.c_str(), 1);
  EXPECT_EQ(mDirs.GetUserDir(), "");
  setenv("HOME", "", 1);
  EXPECT_EQ(mDirs.GetUserDir(), "");
  EXPECT_EQ(mLog.Take(),
            (Lines{Error("dir:" + missing + " not exist!"), Error("dir: not exist!")}));
  unsetenv("HOME");
  EXPECT_EQ(mDirs.GetUserDir(), "");
  EXPECT_EQ(mLog.Take(), Lines{});
  if (!fs::exists("/Brimlet")) {
    EXPECT_EQ(mDirs.CreateOthersDir(), 100);
    EXPECT_EQ(mLog.Take(), (Lines{Error("dir:/Brimlet/Orvix/others/ not exist!"),
                                  Error("CreateOthersDir userdir empty!")}));
  }
}

TEST_F(DirOperatorTest, AsksForTheDesktop) {
  const std::string program = mFolder / "xdg-user-dir";
  const std::string path = getenv("PATH");
  setenv("PATH", (mFolder.Path() + ":" + path).c_str(), 1);
  WriteWhole(program, "#!/bin/sh\necho /home/somebody/$1\n");
  chmod(program.c_str(), 0700);
  EXPECT_EQ(mDirs.GetDesktopDir(), "/home/somebody/DESKTOP");
  setenv("PATH", path.c_str(), 1);
}

TEST_F(DirOperatorTest, TestsPaths) {
  fs::create_symlink(mFolder.Path(), mFolder / "link");
  fs::create_symlink("nowhere", mFolder / "dangling");
  WriteWhole(mFolder / "file", "");
  chmod((mFolder / "file").c_str(), 0600);
  const struct {
    std::string path;
    bool isDir, isLink, isAccessible;
  } cases[] = {
      {mFolder.Path(), true, false, true},        {mFolder / "link", true, true, true},
      {mFolder / "dangling", false, true, false}, {mFolder / "file", false, false, false},
      {mFolder / "missing", false, false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(mDirs.IsDirExist(c.path), c.isDir) << c.path;
    EXPECT_EQ(mDirs.IsSymLink(c.path), c.isLink) << c.path;
    EXPECT_EQ(mDirs.IsDirAccessible(c.path), c.isAccessible) << c.path;
  }
}

TEST_F(DirOperatorTest, RemovesATreeAndNothingThatLinksLeadTo) {
  const std::string outside = mFolder / "outside";
  const std::string tree = mFolder / "tree";
  fs::create_directories(outside);
  WriteWhole(outside + "/canary", "");
  for (const std::string& path : {tree, tree + "/", tree + "//"}) {
    fs::create_directories(tree + "/a/b/" + std::string(255, 'n'));
    WriteWhole(tree + "/a/file", "");
    fs::create_directory_symlink(outside, tree + "/a/link");
    fs::create_symlink("nowhere", tree + "/dangling");
    EXPECT_EQ(mDirs.RemoveDir(path), 0) << path;
    EXPECT_FALSE(fs::exists(tree)) << path;
  }
  EXPECT_EQ(mLog.Take(), Lines{});

  const std::string link = mFolder / "link";
  fs::create_directory_symlink(outside, link);
  WriteWhole(mFolder / "file", "");
  for (const std::string& path : {link, link + "/", mFolder / "file", mFolder / "missing",
                                  std::string(), (mFolder / "missing") + "/sub"}) {
    EXPECT_EQ(mDirs.RemoveDir(path), -102) << path;
    EXPECT_EQ(mLog.Take(), Lines{Error("opendir " + path + " failed")});
  }
  EXPECT_TRUE(fs::exists(outside + "/canary"));
}

TEST_F(DirOperatorTest, StopsAtADirectoryThatItMayNotRead) {
  const std::string tree = mFolder / "tree";
  fs::create_directories(tree + "/closed");
  fs::permissions(tree + "/closed", fs::perms::none);
  // Root may read everything; another user has to be able to get here and to write the log.
  const uid_t user = geteuid();
  const bool isOther = user == 0 && chown(tree.c_str(), 65534, 65534) == 0 &&
                       chmod(mFolder.Path().c_str(), 0777) == 0 && seteuid(65534) == 0;
  const int result = mDirs.RemoveDir(tree);
  if (isOther) {
    EXPECT_EQ(seteuid(user), 0);
  }
  if (result == 0) {
    GTEST_SKIP() << "this user may read every directory, and there is no other one";
  }
  EXPECT_EQ(result, -102);
  EXPECT_EQ(mLog.Take(), (Lines{Error("opendir " + tree + "/closed failed"),
                                Error("RemoveDir failed, " + tree)}));
}

// Makes the directory "tree" in `folder` with levels of long names below it, and in the deepest one
// a file whose path has `length` characters.
void MakeDeepTree(const TempFolder& folder, std::size_t length) {
  const std::string start = fs::current_path();
  const std::string name(200, 'd');
  std::string path = folder / "tree";
  fs::create_directory(path);
  fs::current_path(path);
  while (path.size() + name.size() + 2 < length) {
    fs::create_directory(name);
    fs::current_path(name);
    path += "/" + name;
  }
  WriteWhole(std::string(length - path.size() - 1, 'f'), "");
  fs::current_path(start);
}

TEST_F(DirOperatorTest, StopsAtAPathOfMoreThan4095Characters) {
  MakeDeepTree(mFolder, 4095);
  EXPECT_EQ(mDirs.RemoveDir(mFolder / "tree"), 0);
  EXPECT_EQ(mLog.Take(), Lines{});

  MakeDeepTree(mFolder, 4096);
  EXPECT_EQ(mDirs.RemoveDir(mFolder / "tree"), -1);
  // One line for each level; those about the deepest ones are too long for the log themselves.
  const Lines lines = mLog.Take();
  ASSERT_GT(lines.size(), 15U);
  EXPECT_EQ(lines.back(), Error("RemoveDir failed, " + (mFolder / "tree")));

  // From within, the same tree has room.
  const std::string start = fs::current_path();
  fs::current_path(mFolder.Path());
  EXPECT_EQ(mDirs.RemoveDir("tree"), 0);
  fs::current_path(start);
}

// Folders in the tree and links to a foreign folder change places as fast as they can. There are
// many, so that most are exchanged after the directory was read and before their turn has come.
TEST_F(DirOperatorTest, NeverFollowsAFolderSwappedForALink) {
  constexpr int kCount = 50;
  const std::string outside = mFolder / "outside";
  const auto victim = [&](int i) { return mFolder / "tree/" + std::to_string(i); };
  const auto link = [&](int i) { return mFolder / std::to_string(i); };
  fs::create_directories(outside + "/sub");
  WriteWhole(outside + "/sub/canary", "");
  std::atomic<bool> isDone = false;
  std::thread swapper([&] {
    for (int i = 0; !isDone; i = (i + 1) % kCount) {
      renameat2(AT_FDCWD, victim(i).c_str(), AT_FDCWD, link(i).c_str(), RENAME_EXCHANGE);
    }
  });
  for (int round = 0; round < 100; ++round) {
    for (int i = 0; i < kCount; ++i) {
      std::error_code ignored;
      fs::create_directories(victim(i), ignored);
      fs::remove(link(i), ignored);
      fs::create_directory_symlink(outside, link(i), ignored);
    }
    mDirs.RemoveDir(mFolder / "tree");
  }
  isDone = true;
  swapper.join();
  EXPECT_TRUE(fs::exists(outside + "/sub/canary"));
}

TEST(CommandOutput, IsCleanedAndEmptyOnFailure) {
  const struct {
    const char* command;
    std::string output;
  } cases[] = {
      {"printf 'a\\nb'", "ab"},
      {"printf '  x  \\n'", "x"},
      {"printf '\\t x \\r\\n'", "\t x \r"},
      {"printf ' \\n '", ""},
      {"printf 'a\\0b\\nc\\n'", "ac"},
      {"printf 'one\\ntwo\\n'", "one\ntwo"},
      {"head -c 5000 /dev/zero | tr '\\0' x", std::string(5000, 'x')},
      {"echo text; exit 1", ""},
      {"echo text; kill -9 $$", "text"},
      {"", ""},
      {"echo ./x", ""},
      {"echo ../x", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Velmar::Utils::GetCmdOutput(c.command), c.output) << c.command;
  }
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  const rlimit none{.rlim_cur = 0, .rlim_max = files.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(Velmar::Utils::GetCmdOutput("echo text"), "");
  setrlimit(RLIMIT_NOFILE, &files);
  EXPECT_EQ(Velmar::Utils::GetUuid().size(), 36U);
  EXPECT_NE(Velmar::Utils::GetUuid(), Velmar::Utils::GetUuid());
}

}  // namespace
}  // namespace BrimletTest
