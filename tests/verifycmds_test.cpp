// The policy, and the program that explains it, against the patterns in Grammar.h.
#include "verifycmds/verifycmds.h"

#include <random>
#include <set>

#include "fuzz/Grammar.h"
#include "tests/FolderTest.h"
#include "verifycmds/Rules.h"

// Words that fit in some place, or nearly, or in none.
const std::string k16 = "abcdefghij_12345", k64 = k16 + k16 + k16 + k16;
// clang-format off
const Texts kWords = {
    "", "wlan-0", "\xc3\xa9", "123456789012", "1234567890123", "+12", "12a", "0", "99", "100", "36", "-36",
    "177", "35", "178", "\t\r00000000000036", "-0", "65535", "65536", "-1", "\v7", "4294967332", "orvix1",
    "00:00:00:00:00:00", "192.168.1.01", "1.2.3.256", "--ADD", "--adds", k16 + "x", k64 + "x", " ", "1 1 1 1 1 1"};
// clang-format on

struct PolicyTest : FolderTest {
  Velmar::VerifyCmds& policy = Velmar::SingletonNew<Velmar::VerifyCmds>::GetInstance();
};

TEST_F(PolicyTest, AgreesWithThePatternsAndSoDoesBrimletCheck) {
  std::mt19937 random(1);
  std::set<std::string> lines;
  std::ifstream allowed(SOURCE_DIR "/tests/data/lines.txt");
  std::size_t rules = 0;
  for (std::string line; std::getline(allowed, line); ++rules) {
    lines.insert(line);
    EXPECT_TRUE(policy.IsValidCmd(line)) << line;
    for (std::size_t start = 0, end = 0; end < line.size(); start = end + 1) {
      end = std::min(line.find(' ', start), line.size());
      lines.insert(line.substr(0, end));
      for (const std::string& word : kWords)
        lines.insert(std::string(line).replace(start, end - start, word));
    }
    for (int i = 0; i < 500; ++i)
      lines.insert(std::string(line).replace(random() % line.size(), random() % 2, random() % 2,
                                             "  \t\r-_:.09aFgx+\x80"[random() % 16]));
  }
  EXPECT_EQ(rules, Velmar::GetRules().size());
  std::string input, verdicts;
  for (int number = 0; const std::string& line : lines) {
    const bool isAllowed = policy.IsValidCmd(line);
    EXPECT_EQ(isAllowed, BrimletTest::IsAllowed(line)) << '"' << line << '"';
    input += line + "\n";
    verdicts += std::to_string(++number) + (isAllowed ? ": allowed\n" : ": refused\n");
  }
  std::ofstream(folder / "lines") << input;
  Run(BRIMLET_CHECK " <lines | cut -d: -f1,2 >verdicts");
  EXPECT_EQ(ReadWhole(folder / "verdicts"), verdicts);
}

TEST_F(PolicyTest, JudgesHugeLinesAndLogsUnknownOptionWordsOnly) {
  const std::string huge(20'000'000, '0');
  EXPECT_TRUE(policy.IsValidCmd(huge + " --unblock " + huge + "99"));
  EXPECT_FALSE(policy.IsValidCmd("x --add" + std::string(huge.size(), ' ')));
  EXPECT_EQ(Logged(), "");
  EXPECT_FALSE(policy.IsValidCmd("x " + huge));
  EXPECT_EQ(Logged(), "E ORVIX_BRIMLETD: It doesn't find this command\n");
}

TEST_F(PolicyTest, IsExplainedByBrimletCheckAndShownInTheManual) {
  const std::string source = SOURCE_DIR, told = source + "/tests/data/brimlet-check.txt";
  std::ofstream(folder / "brimlet-check") << "#!/bin/sh\nexec" BRIMLET_CHECK " \"$@\"\n";
  Run("chmod 700 brimlet-check; grep '^\\$' " + told +
      " | while read -r line; do printf '%s\\n' \"$line\"; " +
      "PATH=.:$PATH sh -c \"${line#* }\" 2>err; echo $?; done | diff " + told + " -");
  Run("sed '1,/A test compares/d;/^.fi/,$d;/^.nf/d;s/\\\\-/-/g' " + source +
      "/packaging/brimletd.8.in >manual; ./brimlet-check --grammar | diff manual -");
}
