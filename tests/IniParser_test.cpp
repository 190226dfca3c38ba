#include "storage/IniParser.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>

#include "tests/IniModel.h"
#include "tests/Support.h"

namespace BrimletTest {
namespace {

using Velmar::IniParser;

class IniParserTest : public testing::Test {
 protected:
  // What stands in the file after its content was `text` and was loaded and saved.
  std::string Resave(const std::string& text) {
    WriteWhole(mPath, text);
    IniParser parser;
    return parser.Load(mPath) == 0 && parser.Save(mPath) == 0 ? ReadWhole(mPath) : "<refused>";
  }

  TempFolder mFolder;
  std::string mPath = mFolder / "a.ini";
  const Lines mSaved = {"[INFO] [IniParser] UTILS: ready to save " + mPath + "."};
  IniParser mParser;
};

TEST_F(IniParserTest, KeepsWhatTheDialectCanKeep) {
  const struct {
    const char* text;
    const char* saved;
  } cases[] = {
      {"a=1\nb=2\n", "[default]\na=1\nb=2\n"},
      // The names of two comments run together: the later one counts, and goes to both.
      {";old\n[a1]\nk=v\n;0\n;1\n;2\n;3\n;4\n;5\n;6\n;7\n;8\n;9\n;new\n[a]\nk=v\n",
       ";new\n[a1]\nk=v\n;0\n;1\n;2\n;3\n;4\n;5\n;6\n;7\n;8\n;9\n;new\n[a]\nk=v\n"},
      {"[s]\n", "<refused>"},  // loads, but has nothing to save
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Sorted(Resave(c.text)), Sorted(c.saved)) << c.text;
  }
}

TEST_F(IniParserTest, ReadsNumbersAsAStreamDoes) {
  const Lines texts = LinesOf(
      "12abc\nabc\n0\n-5\n+5\n \t\v\f\r7\n+-5\n-+5\n--5\n- 5\n+\n-\n  \n"
      "007\n0x12\n1,000\n1e3\n3.9\n\x80\n"
      "2147483647\n2147483648\n-2147483648\n-2147483649\n+2147483648x\n99999999999999999999\n"
      "-99999999999999999999\n");
  for (const std::string& text : texts) {
    int expected = 0;
    std::istringstream(text) >> expected;
    WriteWhole(mPath, "k=" + text);
    EXPECT_EQ(mParser.GetInt(mPath, "default", "k"), expected) << text;
  }
}

TEST_F(IniParserTest, GettersGiveDefaultsAndTellWhy) {
  LogCapture log;
  const std::string empty = mFolder / "empty.ini";
  const std::string missing = mFolder / "missing.ini";
  WriteWhole(mPath, "[s]\nk=v\nn=\nt=true\nu=True\n");
  WriteWhole(empty, "");
  const Lines unknown(3, "[WARNING] [IniParser] UTILS: section x is invalid!");
  const Lines none(3, "[WARNING] [IniParser] UTILS: config file " + empty + " is empty!");
  const struct {
    std::string path;
    const char* section;
    const char* key;
    const char* text;
    int number;
    bool flag;
    Lines log;
  } cases[] = {
      {mPath, "s", "k", "v", 0, false, {}},   {mPath, "s", "n", "", -1, false, {}},
      {mPath, "s", "t", "true", 0, true, {}}, {mPath, "s", "u", "True", 0, false, {}},
      {mPath, "s", "new", "", -1, false, {}}, {mPath, "x", "k", "", -1, false, unknown},
      {mPath, "", "k", "", -1, false, {}},    {mPath, "s", "", "", -1, false, {}},
      {missing, "s", "k", "", -1, false, {}}, {"", "s", "k", "", -1, false, {}},
      {empty, "s", "k", "", -1, false, none},
  };
  for (const auto& c : cases) {
    const std::string name = c.path + " " + c.section + "/" + c.key;
    EXPECT_EQ(mParser.GetString(c.path, c.section, c.key), c.text) << name;
    EXPECT_EQ(mParser.GetInt(c.path, c.section, c.key), c.number) << name;
    EXPECT_EQ(mParser.GetBool(c.path, c.section, c.key), c.flag) << name;
    EXPECT_EQ(log.Take(), c.log) << name;
  }
  EXPECT_EQ(mParser.GetFileData(missing), nullptr);
  EXPECT_TRUE(mParser.CheckSectionInvalid(missing, "s"));
  EXPECT_EQ(log.Take(), Lines{"[WARNING] [IniParser] UTILS: filePath " + missing + " is invalid!"});
  // Saving a path makes it known.
  EXPECT_EQ(mParser.Save(missing), -1);
  EXPECT_TRUE(mParser.CheckSectionInvalid(missing, "s"));
  EXPECT_EQ(log.Take(),
            Lines{"[WARNING] [IniParser] UTILS: config file " + missing + " is empty!"});
}

TEST_F(IniParserTest, EveryLoadTakesTheContentFromTheFile) {
  WriteWhole(mPath, "[s]\nk=v\n");
  // A missing key is held once it was asked for, until the next load.
  mParser.GetString(mPath, "s", "new");
  mParser.GetString(mPath, "s", "k");
  EXPECT_EQ(mParser.SaveAll(), 0);
  EXPECT_EQ(ReadWhole(mPath), "[s]\nk=v\n");
  mParser.GetString(mPath, "s", "new");
  EXPECT_EQ(mParser.SaveAll(), 0);
  EXPECT_EQ(Sorted(ReadWhole(mPath)), Sorted("[s]\nk=v\nnew=\n"));
  WriteWhole(mPath, "[s]\nk=1\n");
  mParser.SetInt(mPath, "s", "k", 2);
  WriteWhole(mPath, "[s]\nk=1\n");
  EXPECT_EQ(mParser.GetInt(mPath, "s", "k"), 1);
}

TEST_F(IniParserTest, SettersWriteAtOnce) {
  LogCapture log;
  WriteWhole(mPath, "");
  ASSERT_EQ(chmod(mPath.c_str(), 0640), 0);
  const auto expectFile = [&](const char* text, const Lines& lines) {
    EXPECT_EQ(Sorted(ReadWhole(mPath)), Sorted(text));
    EXPECT_EQ(log.Take(), lines) << text;
  };
  mParser.SetString(mPath, "s", "k", "v");
  expectFile("[s]\nk=v\n", mSaved);
  mParser.SetInt(mPath, "s", "k", -5);
  expectFile("[s]\nk=-5\n", mSaved);
  mParser.SetBool(mPath, "s", "t", true);
  expectFile("[s]\nk=-5\nt=true\n", mSaved);
  mParser.SetBool(mPath, "s", "t", false);
  mParser.SetString(mPath, "s", "k", static_cast<const char*>(nullptr));
  mParser.SetString(mPath, "s", "k", "");
  mParser.SetString(mPath, "s", "k", std::string());
  mParser.SetInt(mPath, "", "k", 1);
  mParser.SetInt(mPath, "s", "", 1);
  mParser.SetInt(mFolder / "missing.ini", "s", "k", 1);
  expectFile("[s]\nk=-5\nt=false\n", mSaved);
  EXPECT_EQ(ModeOf(mPath), S_IFREG | 0640U);
  EXPECT_EQ(ModeOf(mFolder / "missing.ini"), 0U);
  mParser.SetString(mPath, "s]x", "[k=l", std::string("v;w\nx"));
  expectFile("[s]\nk=-5\nt=false\n[s]x]\n[k=l=v;w\nx\n", mSaved);
}

TEST_F(IniParserTest, LoadsRegularFilesUpToTheLimitAndNothingElse) {
  const std::string longest = "k=" + std::string(1048576 - 2, 'v');
  WriteWhole(mPath, longest);
  EXPECT_EQ(mParser.Load(mPath), 0);
  WriteWhole(mPath, longest + "v");
  EXPECT_EQ(mParser.Load(mPath), -1);
  // What was held stays.
  EXPECT_EQ(mParser.Save(mPath), 0);
  EXPECT_EQ(ReadWhole(mPath), "[default]\n" + longest + "\n");

  const std::string fifo = mFolder / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  // The last one is a regular file whose first byte cannot be read.
  for (const std::string& path : {mFolder.Path(), fifo, std::string("/dev/zero"),
                                  mFolder / "missing", std::string("/proc/self/mem")}) {
    EXPECT_EQ(mParser.Load(path), -1) << path;
  }
  // A file that turns out longer than it said.
  const auto grown = mParser.GetFileData("/proc/self/status");
  ASSERT_NE(grown, nullptr);
  EXPECT_GT(grown->mSections["default"].size(), 10U);
}

TEST_F(IniParserTest, SaveTellsWhenTheFileWasNotWritten) {
  LogCapture log;
  const auto expectSave = [&](int result) {
    EXPECT_EQ(mParser.Save(mPath), result);
    EXPECT_EQ(log.Take(), mSaved);
  };
  WriteWhole(mPath, "[s]\nk=" + std::string(20000, 'v') + "\n");
  ASSERT_EQ(mParser.Load(mPath), 0);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlimit small = {10000, limit.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  expectSave(-1);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  std::signal(SIGXFSZ, handler);

  std::filesystem::remove(mPath);
  ASSERT_EQ(mkfifo(mPath.c_str(), 0600), 0);
  expectSave(-1);
  std::filesystem::remove(mPath);
  ASSERT_EQ(mkdir(mPath.c_str(), 0700), 0);
  expectSave(-1);
  std::filesystem::remove(mPath);
  const mode_t mask = umask(027);
  expectSave(0);
  umask(mask);
  EXPECT_EQ(ModeOf(mPath), S_IFREG | 0640U);
}

TEST_F(IniParserTest, RefusesCommentsWhoseNamesWouldTakeTooMuchMemory) {
  const auto load = [&](std::size_t comments, std::size_t nameSize) {
    std::string text;
    for (std::size_t i = 0; i < comments; ++i) {
      text += ";\n";
    }
    text.append(nameSize - std::string_view("default").size(), 'k').append("=v\n");
    WriteWhole(mPath, text);
    return mParser.Load(mPath);
  };
  EXPECT_EQ(load((1U << 15U) - 1, 1U << 10U), 0);
  EXPECT_EQ(load(1U << 15U, 1U << 10U), -1);
  EXPECT_EQ(load(100000, 10000), -1);
  EXPECT_EQ(mParser.SaveAll(), 0);
  EXPECT_EQ(LinesOf(ReadWhole(mPath)).size(), (1U << 15U) + 1) << "the held content is lost";
  // A section's name counts with each comment below it.
  std::string text(1, '[');
  text.append(500000, 's').append("]\n");
  for (int i = 0; i < 100000; ++i) {
    text += "k;\n";
  }
  WriteWhole(mPath, text);
  EXPECT_EQ(mParser.GetString(mPath, "s", "k"), "");
}

std::string Pick(std::mt19937& random, const Lines& from) { return from[random() % from.size()]; }

std::string MakeText(std::mt19937& random) {
  std::string text;
  for (auto lines = random() % 12; lines > 0; --lines) {
    text +=
        Pick(random, random() % 20 == 0 ? Lines{"=", ""} : Lines{"[a", "[b]", "[", ";", "a", "b"});
    for (auto size = random() % 6; size > 0; --size) {
      text += "[];=ab \t\r#"[random() % 10];
    }
    text += lines == 1 && random() % 2 == 0 ? "" : "\n";
  }
  return text;
}

TEST_F(IniParserTest, AgreesWithTheModelOnRandomFiles) {
  std::mt19937 random(20240611);
  const auto pick = [&](const Lines& from) { return Pick(random, from); };
  IniModel held;
  int refused = 0;
  for (int round = 0; round < 8000; ++round) {
    // Every other round takes what the last one has saved.
    const std::string text = round % 2 == 0 ? MakeText(random) : ReadWhole(mPath);
    SCOPED_TRACE(text);
    WriteWhole(mPath, text);
    IniModel fresh;
    const bool isFine = fresh.Read(text);
    const auto data = mParser.GetFileData(mPath);
    ASSERT_EQ(data != nullptr, isFine);
    ASSERT_TRUE(!isFine || IniModel::Of(*data) == fresh);
    held = isFine ? fresh : held;
    refused += isFine ? 0 : 1;
    const std::string section = pick({"a", "b", "ab", "a/b", "default"});
    const std::string key = pick({"a", "b", " ", "a;"});
    if (isFine && random() % 2 == 0) {
      const std::string value = held.sections.contains(section) ? held.sections[section][key] : "";
      ASSERT_EQ(mParser.GetString(mPath, section, key), value);
    }
    if (isFine && random() % 2 == 0) {
      const std::string value = pick({"a", " b\t", "=;", ";a"});
      mParser.SetString(mPath, section, key, value);
      (held = fresh).sections[section][key] = value;
    }
    ASSERT_EQ(mParser.Save(mPath), held.sections.empty() ? -1 : 0);
    if (!held.sections.empty()) {
      ASSERT_EQ(Sorted(ReadWhole(mPath)), Sorted(held.Write()));
    }
  }
  EXPECT_GT(refused, 500);
}

}  // namespace
}  // namespace BrimletTest
