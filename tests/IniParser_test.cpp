#include "storage/IniParser.h"

#include <random>

#include "fuzz/IniModel.h"
#include "tests/FolderTest.h"

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
    fs::remove(path);  // which is quicker than to empty it
    ASSERT_TRUE(BrimletTest::AgreesWithModel(parser, path, text)) << text;
  }
}

TEST_F(IniParserTest, GetsNumbersAsAStreamDoesAndDefaultsForWhatIsNotThere) {
  std::ofstream(path) << "[s]\nk=v\nn=\nt=true\nu=True\n1=+-5\n2= 2147483648\n3=-2147483649x\n";
  const std::pair<Texts, int> cases[] = {
      {{path, "s", "1"}, 0},  {{path, "s", "2"}, INT_MAX}, {{path, "s", "3"}, INT_MIN},
      {{path, "s", "n"}, -1}, {{path, "s", "new"}, -1},    {{path, "s", ""}, -1},
      {{path, "", "k"}, -1},  {{none, "s", "k"}, -1},      {{path, "x", "k"}, -1}};
  for (const auto& [at, number] : cases)
    EXPECT_EQ(parser.GetInt(at[0], at[1], at[2]), number) << at[1] << "/" << at[2];
  EXPECT_EQ(parser.GetString(path, "s", "k") + parser.GetString(path, "s", "n"), "v");
  EXPECT_TRUE(parser.GetBool(path, "s", "t") && !parser.GetBool(path, "s", "u"));
  EXPECT_EQ(parser.Save(none), -1);  // makes it known
  EXPECT_TRUE(parser.CheckSectionInvalid("b", "s") && parser.CheckSectionInvalid(none, "s"));
  EXPECT_FALSE(parser.CheckSectionInvalid(path, "s"));
  EXPECT_EQ(Logged(),
            "W section x is invalid!\nW filePath b is invalid!\nW config file none is empty!\n");
}

TEST_F(IniParserTest, SetsAndWritesAtOnceWhatHasANameAndAValue) {
  Run("install -m 640 /dev/null a");
  parser.SetString(path, "s", "k", "v");
  parser.SetBool(path, "s", "t", true), parser.SetBool(path, "s", "f", false);
  parser.SetInt(path, "s", "n", -5);
  parser.SetString(path, "s", "k", static_cast<const char*>(nullptr));
  parser.SetInt(path, "", "k", 1), parser.SetInt(path, "s", "", 1);
  Run("test $(stat -c %a a) = 640 && sort a | xargs | grep -qx '.s. f=false k=v n=-5 t=true'");
  EXPECT_EQ(Logged(),
            "I ready to save a.\nI ready to save a.\nI ready to save a.\nI ready to save a.\n");
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
