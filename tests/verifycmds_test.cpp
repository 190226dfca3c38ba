// The policy, and the program that explains it, against the patterns in Grammar.h.
#include "verifycmds/verifycmds.h"

#include <set>

#include "fuzz/Grammar.h"
#include "tests/FolderTest.h"
#include "verifycmds/Rules.h"

using PolicyTest = FolderTest;
const Velmar::VerifyCmds kPolicy;

// Words that fit in some place, or nearly, or in none.
// clang-format off
const Texts kWords = {
    "", "wlan-0", "\xc3\xa9", "123456789012", "1234567890123", "+12", "12a", "0", "99", "100", "36",
    "-36", "177", "35", "178", "\t\r00000000000036", "-0", "65535", "65536", "-1", "\v7", "orvix1",
    "4294967332", "00:00:00:00:00:00", "192.168.1.01", "1.2.3.256", "--ADD", "--adds", " ",
    "+-0", "1 1 1 1 1 1", std::string(17, 'k'), std::string(64, '-'), std::string(65, 'k')};
// clang-format on

TEST_F(PolicyTest, AgreesWithThePatternsAndSoDoesBrimletCheck) {
  const auto grammar = BrimletTest::MakeGrammar();
  EXPECT_EQ(grammar.size(), Velmar::GetRules().size());
  std::set<std::string> lines;
  for (const auto& [option, form] : grammar) {
    std::string line = (option == "--exit" ? "brimletd " : "x ") + option + " " + form.example;
    lines.insert(line);
    line.pop_back();
    EXPECT_TRUE(kPolicy.IsValidCmd(line)) << line;
    for (std::size_t start = 0, end = 0; end < line.size(); start = end + 1) {
      end = std::min(line.find(' ', start), line.size());
      lines.insert(line.substr(0, end));
      for (const std::string& word : kWords)
        lines.insert(std::string(line).replace(start, end - start, word));
    }
  }
  std::ofstream input(folder / "lines"), verdicts(folder / "verdicts");
  for (int number = 0; const std::string& line : lines) {
    const bool isAllowed = kPolicy.IsValidCmd(line);
    EXPECT_EQ(isAllowed, BrimletTest::IsAllowed(line)) << '"' << line << '"';
    input << line << std::endl;
    verdicts << ++number << (isAllowed ? ": allowed" : ": refused") << std::endl;
  }
  Run("$BRIMLET_CHECK <lines | cut -d: -f1,2 | diff verdicts -");
}

TEST_F(PolicyTest, JudgesHugeLinesAndLogsUnknownOptionWordsOnly) {
  const std::string huge(20'000'000, '0');
  EXPECT_TRUE(kPolicy.IsValidCmd(huge + " --unblock " + huge + "99"));
  EXPECT_FALSE(kPolicy.IsValidCmd("x --add" + std::string(huge.size(), ' ')));
  EXPECT_EQ(Logged(), "");
  EXPECT_FALSE(kPolicy.IsValidCmd("x " + huge));
  EXPECT_EQ(Logged(), "E ORVIX_BRIMLETD: It doesn't find this command\n");
}

TEST_F(PolicyTest, IsExplainedByBrimletCheckAndShownInTheManual) {
  const std::string source = SOURCE_DIR, told = source + "/tests/data/brimlet-check.txt";
  std::ofstream(folder / "brimlet-check") << "#!/bin/sh\nexec $BRIMLET_CHECK \"$@\"\n";
  Run("chmod 700 brimlet-check; grep '^\\$' " + told +
      " | while read -r line; do printf '%s\\n' \"$line\"; " +
      "PATH=.:$PATH sh -c \"${line#* }\" 2>err; echo $?; done | diff " + told + " -");
  Run("sed '1,/A test compares/d;/^.fi/,$d;/^.nf/d;s/\\\\-/-/g' " + source +
      "/packaging/brimletd.8.in >manual; ./brimlet-check --grammar | diff manual -");
}
