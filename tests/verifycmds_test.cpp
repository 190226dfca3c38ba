// The policy against the grammar written as a table of patterns, on seeded random and mutated
// lines.
#include "verifycmds/verifycmds.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>

#include "tests/Support.h"

namespace BrimletTest {
namespace {

constexpr int kRandomLines = 250000;

// A form of argument, and some words to build lines from.
struct Form {
  std::regex pattern;
  long min = 0, max = -1;  // of the number at its start, where there is a range
  Lines samples;
};

const char* const kStoi = "[\\t\\n\\v\\f\\r]*[+-]?(\\d+)[^]*";
const std::string k16 = "abcdefghij_12345";
const std::string k64 = k16 + k16 + k16 + k16;
const Form kAny{std::regex("[^]*"), 0, -1, {"", "any", "\t;&|"}};
const Form kWord{std::regex("\\w+"), 0, -1, {"wlan0", "_", "wlan-0", "", "a\n", "\xc3\xa9"}};
const Form kWord16{
    std::regex("\\w{16}"), 0, -1, {k16, k16.substr(1), k16 + "x", "bcdefghij_1234-"}};
const Form kWord64{std::regex("\\w{64}"), 0, -1, {k64, k64.substr(1), k64 + "x"}};
const Form kPid{std::regex("\\d{1,12}"),
                0,
                -1,
                {"1234", "0", "123456789012", "1234567890123", "+12", "12a", ""}};
const Form kMac{
    std::regex("(?!(00:){5}00|(FF:){5}FF|(ff:){5}ff)([A-Fa-f0-9]{2}:){5}[A-Fa-f0-9]{2}"),
    0,
    -1,
    {"AA:BB:cc:dd:ee:0f", "00:00:00:00:00:00", "FF:FF:FF:FF:FF:FF", "ff:ff:ff:ff:ff:ff",
     "fF:ff:ff:ff:ff:ff", "AA-BB-CC-DD-EE-FF"}};
const Form kIpv4{std::regex("(?!0)((25[0-5]|2[0-4]\\d|1\\d\\d|[1-9]?\\d)(\\.(?!$)|$)){4}"),
                 0,
                 -1,
                 {"192.168.1.1", "192.168.1.01", "0.1.2.3", "255.255.255.255", "1.2.3.256"}};
const Form kOrvix0{std::regex("orvix0"), 0, -1, {"orvix0", "orvix1", "eth0", "orvix0\n"}};
const Form kChannel{std::regex(kStoi),
                    36,
                    177,
                    {"36", "177", "35", "178", "36abc", "+36", "\t\r0000000000000036", "-36"}};
const Form kPort{std::regex(kStoi),
                 0,
                 65535,
                 {"0", "-0", "65535", "65536", "-1", "8080abc", "abc", "99999999999", "",
                  "99999999999999999999999999", "0x10", "+", "\v7", "4294967296"}};
const Form kIndex{std::regex(kStoi), 0, 99, {"99", "100", "0", "-1", "099", "99999999999"}};

struct Rule {
  const char* option;
  const char* program;  // null: any
  std::vector<Form> arguments;
  bool isLastOptional = false;
};

const std::vector<Rule> kGrammar = {
    {"--exit", "brimletd", {}},
    {"--add", nullptr, {}},
    {"-a", nullptr, {}},
    {"--delete", nullptr, {}},
    {"-d", nullptr, {}},
    {"--search", nullptr, {}},
    {"-s", nullptr, {}},
    {"--nopluginInput", nullptr, {}},
    {"--nopluginNull", nullptr, {}},
    {"--nohidden", nullptr, {kWord}},
    {"--btup", nullptr, {kWord}},
    {"--delVirt", nullptr, {kWord}},
    {"--unmanaged", nullptr, {kMac}},
    {"--kill", nullptr, {kPid}},
    {"--randomPort", nullptr, {kPort}},
    {"--randomPortDel", nullptr, {kPort}},
    {"--unblock", nullptr, {kIndex}},
    {"--setIP", nullptr, {kOrvix0, kIpv4}},
    {"--virt", nullptr, {kWord, kOrvix0}},
    {"--disconbt", nullptr, {kWord, kMac}},
    {"--hostapd", nullptr, {kChannel, kWord16, kWord64, kAny, kAny}, true},
    {"--reload", nullptr, {kChannel, kWord16, kWord64, kAny, kPid}},
};

bool Fits(const std::string& word, const Form& form) {
  std::smatch match;
  if (!std::regex_match(word, match, form.pattern)) {
    return false;
  }
  if (form.max < form.min) {
    return true;
  }
  try {
    const int value = std::stoi(word);
    return value >= form.min && value <= form.max;
  } catch (const std::out_of_range&) {
    return false;
  }
}

const Rule* FindRule(const std::string& option) {
  for (const Rule& rule : kGrammar) {
    if (option == rule.option) {
      return &rule;
    }
  }
  return nullptr;
}

Lines WordsOf(std::string line) {
  Lines words;
  for (std::size_t end = line.find(' '); end != std::string::npos; end = line.find(' ')) {
    words.push_back(line.substr(0, end));
    line.erase(0, end + 1);
  }
  if (!line.empty()) {
    words.push_back(line);
  }
  return words;
}

enum class Verdict { kAllowed, kRefused, kUnknown };

Verdict Judge(const std::string& line) {
  const Lines words = WordsOf(line);
  if (words.size() < 2) {
    return Verdict::kRefused;
  }
  const Rule* const rule = FindRule(words[1]);
  if (rule == nullptr) {
    return Verdict::kUnknown;
  }
  const std::size_t max = rule->arguments.size() + 2;
  if (words.size() > max || words.size() < max - (rule->isLastOptional ? 1 : 0) ||
      (rule->program != nullptr && words[0] != rule->program)) {
    return Verdict::kRefused;
  }
  for (std::size_t i = 2; i < words.size(); ++i) {
    if (!Fits(words[i], rule->arguments[i - 2])) {
      return Verdict::kRefused;
    }
  }
  return Verdict::kAllowed;
}

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
