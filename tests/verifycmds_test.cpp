// The policy against the table of patterns in Grammar.cpp, on seeded random and mutated lines.
#include "verifycmds/verifycmds.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <random>
#include <string>

#include "tests/Grammar.h"
#include "tests/Support.h"

namespace BrimletTest {
namespace {

constexpr int kRandomLines = 250000;

class PolicyTest : public testing::Test {
 protected:
  bool IsValid(const std::string& line) { return mPolicy.IsValidCmd(line); }

  Velmar::VerifyCmds mPolicy;
  LogCapture mLog;
};

class LineMaker {
 public:
  std::string Make() {
    const Rule& rule = kGrammar[Below(kGrammar.size())];
    std::string line = Below(8) == 0 ? "" : rule.program != nullptr ? rule.program : "x";
    line += std::string(" ") + rule.option;
    for (const Form& form : rule.arguments) {
      // The first sample fits; most lines should get beyond their first argument.
      line += " " + form.samples[Below(2) == 0 ? Below(form.samples.size()) : 0];
    }
    for (auto mutations = Below(3); mutations > 0; --mutations) {
      Mutate(line);
    }
    return line;
  }

 private:
  std::size_t Below(std::size_t bound) { return mRandom() % bound; }

  void Mutate(std::string& line) {
    static const std::string bytes = "  \t\n-_:.09aFgx+\x80";
    const std::size_t at = Below(line.size() + 1);
    switch (Below(4)) {
      case 0:
        line.insert(at, 1, bytes[Below(bytes.size())]);
        break;
      case 1:
        line.erase(at, 1);
        break;
      case 2:
        line.replace(at, at < line.size() ? 1 : 0, 1, bytes[Below(bytes.size())]);
        break;
      default:
        line.resize(at);
        break;
    }
  }

  std::mt19937 mRandom{1};
};

TEST_F(PolicyTest, AgreesWithTheGrammarOnRandomAndMutatedLines) {
  LineMaker maker;
  std::map<Verdict, int> counts;
  for (int i = 0; i < kRandomLines; ++i) {
    const std::string line = maker.Make();
    const Verdict verdict = Judge(line);
    ++counts[verdict];
    ASSERT_EQ(IsValid(line), verdict == Verdict::kAllowed) << testing::PrintToString(line);
  }
  // The comparison is worth something only while all three are common.
  EXPECT_GT(counts[Verdict::kAllowed], kRandomLines / 10);
  EXPECT_GT(counts[Verdict::kRefused], kRandomLines / 10);
  EXPECT_GT(counts[Verdict::kUnknown], kRandomLines / 20);
  EXPECT_EQ(mLog.Take().size(), static_cast<std::size_t>(counts[Verdict::kUnknown]));
}

TEST_F(PolicyTest, AgreesOnEverySampleInEveryPlaceAndOnEveryNumberOfWords) {
  for (const Rule& rule : kGrammar) {
    for (std::size_t place = 0; place < rule.arguments.size(); ++place) {
      for (const std::string& sample : rule.arguments[place].samples) {
        std::string line = std::string("x ") + rule.option;
        for (std::size_t i = 0; i < rule.arguments.size(); ++i) {
          line += " " + (i == place ? sample : rule.arguments[i].samples[0]);
        }
        EXPECT_EQ(IsValid(line), Judge(line) == Verdict::kAllowed) << testing::PrintToString(line);
      }
    }
    std::string line = rule.program != nullptr ? rule.program : "x";
    line += std::string(" ") + rule.option;
    for (int count = 2; count < 12; ++count) {
      for (const char* const tail : {"", " ", "  "}) {
        EXPECT_EQ(IsValid(line + tail), Judge(line + tail) == Verdict::kAllowed) << line << tail;
      }
      const std::size_t next = static_cast<std::size_t>(count) - 2;
      line += " " + (next < rule.arguments.size() ? rule.arguments[next].samples[0] : "1");
    }
  }
}

TEST_F(PolicyTest, LogsAnUnknownOptionWordAndNoOtherRefusal) {
  for (const char* const line : {"", "brimletd", "x\t--add", "x --add y", "x --exit", " "}) {
    EXPECT_FALSE(IsValid(line)) << line;
  }
  EXPECT_EQ(mLog.Take(), Lines{});
  for (const char* const line :
       {"x  --add", " x --add", "x --ADD", "x --add=1", "x --adds", "  "}) {
    EXPECT_FALSE(IsValid(line)) << line;
    EXPECT_EQ(mLog.Take(),
              Lines{"[ERROR] [verifycmds] ORVIX_BRIMLETD: It doesn't find this command"});
  }
}

TEST_F(PolicyTest, JudgesHugeLines) {
  const std::string huge(20'000'000, 'w');
  EXPECT_TRUE(IsValid("x --btup " + huge));
  EXPECT_TRUE(IsValid(huge + " --add"));
  EXPECT_FALSE(IsValid("x " + huge));
  EXPECT_TRUE(IsValid("x --unblock " + std::string(20'000'000, '0') + "99"));
  EXPECT_FALSE(IsValid("x --add" + std::string(20'000'000, ' ')));
}

}  // namespace
}  // namespace BrimletTest
