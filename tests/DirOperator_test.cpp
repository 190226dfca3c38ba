#include "storage/DirOperator.h"

#include "tests/FolderTest.h"

struct DirOperatorTest : FolderTest {
  const int isHomeSet = setenv("HOME", base.c_str(), 1);
  Velmar::DirOperator& dirs = Velmar::SingletonNew<Velmar::DirOperator>::GetInstance();
};

TEST_F(DirOperatorTest, MakesTheTreeOfAUserOnDemand) {
  EXPECT_EQ(dirs.GetLogDir() + dirs.GetAppDir(), base + "/Brimlet/log" + base + "/Brimlet/");
  EXPECT_EQ(dirs.GetConfDir(), "");
  EXPECT_EQ(dirs.CreateOthersDir() + dirs.CreateOthersDir(), 0);
  Run("test $(stat -c %a Brimlet/log) = 700 && rm -r Brimlet && ln -s none m && touch Brimlet");
  EXPECT_EQ(dirs.GetLogDir(), "");
  EXPECT_TRUE(dirs.IsSymLink(folder / "m") && dirs.IsDirAccessible(base));
  EXPECT_FALSE(dirs.IsSymLink(base) || dirs.IsDirExist(folder / "Brimlet"));
  EXPECT_EQ(dirs.CreateOthersDir(), 100);
  unsetenv("HOME");
  EXPECT_EQ(dirs.GetUserDir() + std::to_string(dirs.CreateOthersDir()), "100");
  EXPECT_EQ(Logged(), ReadWhole(SOURCE_DIR "/tests/data/folders.log"));
}

TEST_F(DirOperatorTest, RemovesATreeAndNothingElseOrStopsWhereItMayNotGoOn) {
  // With the path of an entry of 200 characters, 4095.
  const std::string longest = "." + std::string(3892, '/') + "t", entry(200, 'e');
  const std::string t = "E RemoveDir failed, t\n";
  // clang-format off
  const struct { std::string before, name; int result; std::string log; } cases[] = {
      {"mkdir -p t/a/b; touch t/a/f; ln -s ../out t/l; ln -s none t/d; ln out/f t/h", "t//", 0, ""},
      {"mkdir t; touch t/" + entry, longest, 0, ""}, {"mkdir -p t/a; chmod 300 t", "t/a", 0, ""},
      {"mkdir t; touch t/e" + entry, longest, -1,
       "E remove dir failed " + longest + " for sprintf error\n"},
      {"ln -s out t", "t/", -102, "E opendir t/ failed\n"}, {":", "", -102, "E opendir  failed\n"},
      {"mkdir -p t/a; chmod 0 t/a", "t", -102, "E opendir t/a failed\n" + t},
      {"mkdir -p t/a/b; chmod 500 t/a", "t", -1, "E RemoveDir failed, t/a\n" + t},
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

TEST_F(DirOperatorTest, FollowsNoFolderThatIsSwappedForALinkBeforeAnyCall) {
  DisturbEachOpen(
      0, "rm -rf t moved; mkdir -p t/a/b out/b; touch t/a/b/f out/b/f",
      [&] { dirs.RemoveDir(folder / "t"); },
      "{ test ! -e t/a || { mv t/a moved; ln -s ../out t/a; } }", "test -f out/b/f");
}
