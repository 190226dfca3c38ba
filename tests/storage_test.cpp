#include <random>

#include "fuzz/IniModel.h"
#include "storage/DirOperator.h"
#include "storage/FileOperator.h"
#include "tests/FolderTest.h"

struct DirOperatorTest : FolderTest {
  const int isHomeSet = setenv("HOME", base.c_str(), 1);
  Velmar::DirOperator& dirs = Velmar::SingletonNew<Velmar::DirOperator>::GetInstance();
};

TEST_F(DirOperatorTest, MakesTheTreeOfAUserOnDemand) {
  EXPECT_EQ(dirs.GetLogDir() + dirs.GetAppDir(), base + "/Brimlet/log" + base + "/Brimlet/");
  EXPECT_EQ(dirs.GetConfDir(), "");
  Run("echo " + dirs.mTempDir + " " + dirs.mConfFilePath + " " + dirs.mNetworkBinPath + " >>.log");
  EXPECT_EQ(dirs.CreateOthersDir() + dirs.CreateOthersDir(), 0);
  Run("test $(stat -c %a Brimlet/log) = 700 && rm -r Brimlet && ln -s none m && touch Brimlet");
  EXPECT_EQ(dirs.GetLogDir(), "");
  EXPECT_TRUE(dirs.IsSymLink(folder / "m") && dirs.IsDirAccessible(base));
  EXPECT_FALSE(dirs.IsSymLink(base) || dirs.IsDirExist(folder / "Brimlet"));
  EXPECT_EQ(dirs.CreateOthersDir(), 100);
  unsetenv("HOME");
  EXPECT_EQ(dirs.GetUserDir(), "");
  EXPECT_EQ(dirs.CreateOthersDir(), 100);
  EXPECT_EQ(Logged(), ReadWhole(SOURCE_DIR "/tests/data/folders.log"));
}

TEST_F(DirOperatorTest, RemovesATreeAndNothingElseOrStopsWhereItMayNotGoOn) {
  LeaveRoot();
  fs::current_path(folder);
  Follow("removal.txt", [&](const std::string& before, std::string name) {
    if (name == "LONGEST") name = "." + std::string(3892, '/') + "t";
    Run("chmod -R 700 .; rm -rf *; mkdir out; touch out/f; " + before);
    const int result = dirs.RemoveDir(name);
    Run("test -f out/f -a " + std::string(result == 0 ? "! -e ./" : "-e ./") + name);
    return std::to_string(result) + "\n" + Logged();
  });
  fs::current_path("/");
}

TEST_F(DirOperatorTest, FollowsNoFolderThatIsSwappedForALinkBeforeAnyOpen) {
  DisturbEachOpen(
      0, "rm -rf t moved; mkdir -p t/a/b out/b; touch t/a/b/f out/b/f",
      [&] { dirs.RemoveDir(folder / "t"); }, "test ! -e t/a || { mv t/a moved; ln -s ../out t/a; }",
      "test -f out/b/f");
}

// The helpers give what came of a call as a text, which ends in "|".
struct FileOperatorTest : FolderTest {
  std::string Write(const char* mode, const std::string& content, unsigned offset) {
    Run("printf old >file; chmod 644 file");
    const int result = files.WriteToFile(file, content, offset, mode, 0606);
    Run(std::string("test $(stat -c %a file) = ") + (result == 0 ? "606" : "644"));
    return std::to_string(result) + ReadWhole(file) + "|";
  }
  // What ReadFile() gives of 4 bytes, and ReadLines() of so many lines.
  std::string Read(const std::string& name, const char* mode, int count, unsigned offset) {
    std::string text = ".....";
    Texts lines{""};
    const int size = files.ReadFile(folder / name, text.data(), 4, offset, mode);
    text += std::to_string(files.ReadLines(folder / name, count, offset, lines, mode));
    for (const std::string& line : lines) text += line + " ";
    return std::to_string(size) + text + "|";
  }
  const std::string file = folder / "file", none = folder / "none";
  Velmar::FileOperator& files = Velmar::FileOperator::GetInstance();
};

TEST_F(FileOperatorTest, WritesAsTheModeWordTellsAndTellsFilesFromLinks) {
  EXPECT_EQ(Write("out", "x\0z"s, 0) + Write("ate", "xyz", 2), "0x\0z|0\0\0xyz|"s);
  EXPECT_EQ(Write("app", "x", 1) + Write("binary", "", 0) + Write("in", "x", 0),
            "0oldx|105old|105old|");
  EXPECT_EQ(files.WriteToFile(none, "x", 0, "out", 0600), 102);
  EXPECT_EQ(files.WriteFile(none, "x", 0, "binary", 0604), 0);
  Run("test $(stat -c %a none) = 604 && ln -s file link");
  EXPECT_TRUE(files.IsLinkFile(folder / "link"));
  EXPECT_FALSE(files.IsLinkFile(file) || files.IsLinkFile("/"));
  EXPECT_EQ(Logged(), ReadWhole(SOURCE_DIR "/tests/data/links.log"));
}

TEST_F(FileOperatorTest, ReadsBytesAndLinesFromAnOffsetAndWaitsForNobodyAtAFifo) {
  Run("printf 'a\\n\\nb' >file; printf 'abc\\nd\\0e\\n' >more; mkfifo fifo");
  EXPECT_EQ(Read("file", "in", -5, 0) + Read("file", "in", 3, 0), "4a\n\nb.0 a b |4a\n\nb.1 a b |");
  EXPECT_EQ(Read("file", "in", 4, 1) + Read("more", "binary", 2, 1),
            "3\n\nb..0 b |4bc\nd.4 bc d\0e |"s);
  EXPECT_EQ(Read("file", "app", 1, 0) + Read("none", "in", 1, 0), "-1.....-1 |-1.....-1 |");
  EXPECT_EQ(files.ReadFile(file, nullptr, 1, 0, "in"), -1);
  EXPECT_EQ(files.GetFileSize(none) + files.GetFileSize(file), -1 + 4);
  EXPECT_EQ(Logged(), "E buffer is nullptr, read failed.\nE ifstream open failed!\n");
  EXPECT_EQ(Read("fifo", "in", 1, 0), "0.....0 |");
  EXPECT_EQ(files.WriteFile(folder / "fifo", "x", 0, "ate", 0), 105);
}

struct IniParserTest : FolderTest {
  const std::string path = folder / "a", none = folder / "none";
  Velmar::IniParser parser;
};

TEST_F(IniParserTest, AgreesWithTheModelOnRandomFiles) {
  std::mt19937 random(1);
  for (int round = 0; round < 1000; ++round) {
    std::string text;
    for (auto lines = random() % 12; lines > 0; --lines) {
      text += Texts{"[a", "[b]", "[", ";", "a", "b", random() % 9 > 0 ? "c=" : "="}[random() % 7];
      for (auto size = random() % 6; size > 0; --size) text += "[];=ab \t\r#"[random() % 10];
      text += lines == 1 && random() % 2 == 0 ? "" : "\n";
    }
    ASSERT_TRUE(BrimletTest::AgreesWithModel(parser, path, text)) << text;
  }
}

TEST_F(IniParserTest, GetsNumbersAsAStreamDoesAndDefaultsForWhatIsNotThere) {
  std::ofstream(path) << "[s]\nk=v\nn=\nt=true\nu=True\n1=+-5\n2= 2147483648\n3=-2147483649x\n";
  Follow("numbers.txt", [&](const std::string& section, const std::string& key) {
    return std::to_string(parser.GetInt(section == "none" ? none : path, section, key)) + "\n";
  });
  EXPECT_EQ(parser.GetString(path, "s", "k") + parser.GetString(path, "s", "n"), "v");
  EXPECT_TRUE(parser.GetBool(path, "s", "t") && !parser.GetBool(path, "s", "u"));
  EXPECT_EQ(parser.Save(none), -1);  // makes it known
  EXPECT_TRUE(parser.CheckSectionInvalid("b", "s") && parser.CheckSectionInvalid(none, "s"));
  EXPECT_FALSE(parser.CheckSectionInvalid(path, "s"));
  EXPECT_EQ(Logged(), ReadWhole(SOURCE_DIR "/tests/data/sections.log"));
}

TEST_F(IniParserTest, SetsAndWritesAtOnceWhatHasANameAndAValue) {
  Run("install -m 640 /dev/null a");
  parser.SetString(path, "s", "k", "v");
  parser.SetBool(path, "s", "t", true), parser.SetBool(path, "s", "f", false);
  parser.SetInt(path, "s", "n", -5);
  parser.SetString(path, "s", "k", static_cast<const char*>(nullptr));
  parser.SetInt(path, "", "k", 1), parser.SetInt(path, "s", "", 1);
  Run("test $(stat -c %a a) = 640 && sort a | xargs | grep -qx '.s. f=false k=v n=-5 t=true'");
  Run("test 4 = $(grep -c '\\[INFO\\] .* ready to save .*/a\\.$' .log)");
  Run("rm a; prlimit --pid $PPID --fsize=20:");
  umask(027);
  EXPECT_EQ(parser.SaveAll() + parser.Save(path), -1);
  Run("prlimit --pid $PPID --fsize=unlimited: && test $(stat -c %a a) = 640");
}

TEST_F(IniParserTest, LoadsRegularFilesUpToItsLimitsAndKeepsWhatItHeldOtherwise) {
  Run("printf 'k=%01048574d' 0 >a; printf 'k=%01048575d' 0 >b; mkfifo fifo; cp a copy;"
      "{ yes ';' | head -n 32767; printf %01017d 0; } >few; { echo ';'; cat few; } >many");
  EXPECT_EQ(parser.Load(path) + parser.Load(folder / "few"), 0);
  for (const char* const other : {"b", "many", "fifo", "none", "/dev/zero", "/proc/self/mem"})
    EXPECT_EQ(parser.Load(folder / other), -1) << other;
  Run("mv b a");
  EXPECT_EQ(parser.Load(path) + parser.Save(path), -1);
  Run("{ echo '[default]'; cat copy; echo; } | cmp - a");
}
