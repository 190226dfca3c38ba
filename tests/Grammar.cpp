#include "tests/Grammar.h"

#include <cstddef>
#include <stdexcept>

namespace BrimletTest {
namespace {

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

}  // namespace

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

namespace {

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

}  // namespace

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

}  // namespace BrimletTest
