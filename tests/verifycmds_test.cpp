// The policy against the patterns in Grammar.h, and the program that explains it.
#include "verifycmds/verifycmds.h"

#include "fuzz/Grammar.h"
#include "tests/FolderTest.h"
#include "utils/Split.h"
#include "verifycmds/Rules.h"

using PolicyTest = FolderTest;
const Velmar::VerifyCmds kPolicy;

// Bytes at the ends of the classes that words are made of, and words at the ends of their ranges.
const std::string kBytes("\0\t +-./09:@AFGZ[_`afgz{\x80\xff", 25);
const Texts kWords = Velmar::Utils::Split(
    " 0 -0 +-0 \t\n\v\f\r036 100 177 178 249 255 256 65535 65536 4294967332 123456789012 0.1.1.1"
    " 1.2.3.4.5 00:00:00:00:00:00 FF:FF:FF:FF:FF:FF ff:ff:ff:ff:ff:ff fF:FF:FF:FF:FF:FF",
    " ");

TEST_F(PolicyTest, AgreesWithThePatternsAndSoDoesBrimletCheck) {
  std::ofstream lines(folder / "lines"), verdicts(folder / "verdicts");
  int number = 0;
  const auto expect_agreement = [&](const std::string& line) {
    const bool isAllowed = kPolicy.IsValidCmd(line);
    EXPECT_EQ(isAllowed, BrimletTest::IsAllowed(line)) << testing::PrintToString(line);
    if (line.find('\n') != std::string::npos) return;  // it would be two
    lines << line << '\n';
    verdicts << ++number << (isAllowed ? ": allowed\n" : ": refused\n");
  };
  EXPECT_EQ(BrimletTest::MakeGrammar().size(), Velmar::GetRules().size());
  for (const auto& [option, form] : BrimletTest::MakeGrammar()) {
    const auto line = (option == "--exit" ? "brimletd " : "x ") + option + " " + form.example;
    EXPECT_TRUE(kPolicy.IsValidCmd(line)) << line;
    for (std::size_t i = 0; i < line.size(); ++i) {
      expect_agreement(line.substr(0, i));
      for (const char byte : kBytes) {
        expect_agreement(std::string(line).replace(i, 1, 1, byte));
        expect_agreement(std::string(line).insert(i, 1, byte));
      }
      for (const std::string& word : kWords)  // in place of the rest of the word at hand
        expect_agreement(std::string(line).replace(i, line.find(' ', i) - i, word));
    }
  }
  lines.close(), verdicts.close();
  Run(BRIMLET_CHECK " <lines | cut -d: -f1,2 | diff verdicts -");
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
  std::ofstream(folder / "brimlet-check") << "#!/bin/sh\nexec " BRIMLET_CHECK " \"$@\"\n";
  Run("chmod 700 brimlet-check");
  Follow("brimlet-check.txt", [&](const std::string& command, const std::string& /*none*/) {
    Run("{ PATH=.:$PATH; " + command + "; } >said 2>complaint; echo $? >>said");
    return ReadWhole("said");
  });
  Run("sed '1,/A test compares/d;/^.fi/,$d;/^.nf/d;s/\\\\-/-/g' " SOURCE_DIR
      "/packaging/brimletd.8.in >manual; ./brimlet-check --grammar | diff manual -");
}
