#include "storage/DirOperator.h"

#include "tests/FolderTest.h"
#include "utils/CommandOutput.h"

struct DirOperatorTest : FolderTest {
  const std::string home = folder;
  const int isHomeSet = setenv("HOME", home.c_str(), 1);
  Velmar::DirOperator& dirs = Velmar::SingletonNew<Velmar::DirOperator>::GetInstance();
};

TEST_F(DirOperatorTest, MakesTheTreeOfAUserOnDemand) {
  const std::string others = "Brimlet/Orvix/others/";
  EXPECT_EQ(dirs.GetLogDir() + dirs.GetAppDir(), home + "/Brimlet/log" + home + "/Brimlet/");
  EXPECT_EQ(dirs.GetConfDir(), "");
  EXPECT_EQ(Logged(), "E dir:Brimlet/Orvix/conf/ not exist!\n");
  EXPECT_EQ(dirs.CreateOthersDir() + dirs.CreateOthersDir(), 0);
  EXPECT_TRUE(Logged().ends_with("userdir:" + others + "\nI CreateOthersDir othersdir:" + others +
                                 " already exist\n"));
  Run("test $(stat -c %a Brimlet/log) = 700 && rm -r Brimlet && ln -s none m && touch Brimlet");
  EXPECT_EQ(dirs.GetLogDir() + std::to_string(dirs.CreateOthersDir()), "100");
  unsetenv("HOME");
  EXPECT_EQ(dirs.GetUserDir() + std::to_string(dirs.CreateOthersDir()), "100");
  EXPECT_TRUE(dirs.IsSymLink(folder / "m") && !dirs.IsSymLink(home) && dirs.IsDirAccessible(home));
  EXPECT_TRUE(Logged().ends_with("E CreateOthersDir userdir empty!\n"));
}

TEST_F(DirOperatorTest, RemovesATreeAndNothingElseOrStopsWhereItMayNotGoOn) {
  // clang-format off
  const struct { std::string before, name; int result; std::string log; } cases[] = {
      {"mkdir -p t/a/b; touch t/a/f; ln -s ../out t/l; ln -s none t/d; ln out/f t/h", "t", 0, ""},
      {"mkdir -p t/a", "t//", 0, ""}, {"mkdir -p t/a; chmod 300 t", "t/a", 0, ""},
      {"ln -s out t", "t/", -102, "E opendir t/ failed\n"}, {":", "", -102, "E opendir  failed\n"},
      {"mkdir -p t/a; chmod 0 t/a", "t", -102, "E opendir t/a failed\nE RemoveDir failed, t\n"},
      {"mkdir -p t/a/b; chmod 500 t/a", "t", -1, "E RemoveDir failed, t/a\nE RemoveDir failed, t\n"},
      {"mkdir t; touch t/f; chmod 500 t", "t", -1, "E unlink failed, t/f\n"}};
  // clang-format on
  LeaveRoot();
  fs::current_path(folder);
  for (const auto& [before, name, result, lines] : cases) {
    Run("chmod -R 700 .; rm -rf *; mkdir out; touch out/f;" + before);
    EXPECT_EQ(dirs.RemoveDir(name), result) << before;
    EXPECT_EQ(Logged(), lines) << before;
    Run("test -f out/f -a " + std::string(result == 0 ? "! -e ./" : "-e ./") + name);
  }
  fs::current_path("/");
}

TEST_F(DirOperatorTest, RemovesWhatHasAPathOf4095CharactersAndNothingLonger) {
  for (const std::string length : {"4095", "4096"}) {
    Run("mkdir t; cd t; d=$(printf %0200d 0); while test ${#PWD} -lt 3800; do mkdir -p $d; cd $d; "
        "done; touch $(printf %0$((" +
        length + " - ${#PWD} - 1))d 0)");
    EXPECT_EQ(dirs.RemoveDir(folder / "t"), length == "4095" ? 0 : -1);
  }
  EXPECT_TRUE(Logged().ends_with("E RemoveDir failed, t\n"));
}

TEST_F(DirOperatorTest, FollowsNoFolderThatIsSwappedForALinkBeforeAnyCall) {
  DisturbEachCall(
      0, "rm -rf t moved; mkdir -p t/a/b out/b; touch t/a/b/f out/b/f",
      [&] { dirs.RemoveDir(folder / "t"); },
      "{ test ! -e t/a || { mv t/a moved; ln -s ../out t/a; } }", "test -f out/b/f");
}

TEST_F(DirOperatorTest, GivesWhatACommandPrintsCleanedAndNothingWhenItFails) {
  // clang-format off
  const std::pair<std::string, std::string> cases[] = {
      {"", ""}, {"printf '  x  \\n'", "x"}, {"printf '\\t x \\r\\n'", "\t x \r"}, {"echo ' '", ""},
      {"echo ./x", ""}, {"printf 'a\\0b\\nc\\n'", "ac"}, {"printf 'a\\nb\\n'", "a\nb"},
      {"printf %05000d 0", std::string(5000, '0')}, {"echo x; exit 1", ""}, {"echo x; kill -9 $$", "x"}};
  // clang-format on
  using namespace Velmar::Utils;
  for (const auto& [command, output] : cases) EXPECT_EQ(GetCmdOutput(command), output) << command;
  Run("printf '#!/bin/sh\\necho /home/somebody/$1' >xdg-user-dir; chmod 700 xdg-user-dir");
  setenv("PATH", (home + ":" + getenv("PATH")).c_str(), 1);
  EXPECT_EQ(dirs.GetDesktopDir() + std::to_string(GetUuid().size()), "/home/somebody/DESKTOP36");
}
