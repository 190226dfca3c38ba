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
    SCOPED_TRACE(text);
    fs::remove(path);  // which is quicker than to empty it
    std::ofstream(path) << text;
    BrimletTest::IniModel model;
    const bool isFine = model.Read(text);
    const auto data = parser.GetFileData(path);
    ASSERT_TRUE(isFine ? data && BrimletTest::IniModel::Of(*data) == model : !data);
    if (!isFine) continue;
    ASSERT_EQ(parser.Save(path), model.sections.empty() ? -1 : 0);
    ASSERT_TRUE(model.sections.empty() || model.IsWrittenAs(ReadWhole(path))) << ReadWhole(path);
  }
}

TEST_F(IniParserTest, GetsNumbersAsAStreamDoesAndDefaultsForWhatIsNotThere) {
  for (const std::string text : {"12abc", "+-5", " \t\v\f\r+007", "2147483648", "-2147483649"}) {
    std::ofstream(path) << "k=" << text;
    int expected = 0;
    std::istringstream(text) >> expected;
    EXPECT_EQ(parser.GetInt(path, "default", "k"), expected) << text;
  }
  std::ofstream(path) << "[s]\nk=v\nn=\nt=true\nu=True\n";
  EXPECT_EQ(parser.GetString(path, "s", "k") + parser.GetString(path, "s", "n"), "v");
  EXPECT_TRUE(parser.GetBool(path, "s", "t") && !parser.GetBool(path, "s", "u"));
  const Texts missing[] = {{path, "s", "n"}, {path, "s", "new"}, {path, "s", ""},
                           {path, "", "k"},  {none, "s", "k"},   {path, "x", "k"}};
  for (const Texts& at : missing) EXPECT_EQ(parser.GetInt(at[0], at[1], at[2]), -1) << at[2];
  EXPECT_EQ(parser.Save(none), -1);  // makes it known
  EXPECT_TRUE(parser.CheckSectionInvalid("b", "s") && parser.CheckSectionInvalid(none, "s"));
  EXPECT_FALSE(parser.CheckSectionInvalid(path, "s"));
  const std::string b = "W filePath b is invalid!\n", x = "W section x is invalid!\n";
  EXPECT_EQ(Logged(), x + b + "W config file none is empty!\n");
}

TEST_F(IniParserTest, SetsAndWritesAtOnceWhatHasANameAndAValue) {
  Run("touch a; chmod 640 a");
  parser.SetString(path, "s", "k", "v");
  parser.SetBool(path, "s", "t", true), parser.SetBool(path, "s", "f", false);
  parser.SetInt(path, "s", "n", -5);
  parser.SetString(path, "s", "k", static_cast<const char*>(nullptr));
  parser.SetInt(path, "", "k", 1), parser.SetInt(path, "s", "", 1);
  Run("test $(stat -c %a a) = 640 && sort a | xargs | grep -qx '.s. f=false k=v n=-5 t=true'");
  const std::string saved = "I ready to save a.\n";
  EXPECT_EQ(Logged(), saved + saved + saved + saved);
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
