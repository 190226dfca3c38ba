// The validators against the regular expressions that define them, on every short word over small
// alphabets and on random longer ones.
#include "utils/Validators.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <regex>
#include <string>

namespace BrimletTest {
namespace {

using namespace Velmar::Utils;

const std::regex kWord("\\w+");
const std::regex kNumber("\\d+");
const std::regex kMac("([A-Fa-f0-9][A-Fa-f0-9]:){5}[A-Fa-f0-9][A-Fa-f0-9]");
const std::regex kIpv4(
    "(1\\d{2}|2[0-4]\\d|25[0-5]|[1-9]\\d|[1-9])\\."
    "((1\\d{2}|2[0-4]\\d|25[0-5]|[1-9]\\d|\\d)\\.){2}(1\\d{2}|2[0-4]\\d|25[0-5]|[1-9]\\d|\\d)");
const std::regex kName("[A-Za-z0-9_-]{0,64}");

bool IsRefusedMac(const std::string& word) {
  return word == "00:00:00:00:00:00" || word == "FF:FF:FF:FF:FF:FF" || word == "ff:ff:ff:ff:ff:ff";
}

void ExpectAgreement(const std::string& word) {
  EXPECT_EQ(IsWord(word), std::regex_match(word, kWord)) << testing::PrintToString(word);
  EXPECT_EQ(IsNumber(word), std::regex_match(word, kNumber)) << testing::PrintToString(word);
  EXPECT_EQ(IsMacAddress(word), std::regex_match(word, kMac) && !IsRefusedMac(word))
      << testing::PrintToString(word);
  EXPECT_EQ(IsIpv4Address(word), std::regex_match(word, kIpv4)) << testing::PrintToString(word);
  EXPECT_EQ(IsValidName(word), std::regex_match(word, kName)) << testing::PrintToString(word);
}

// Calls `check` with every word of up to `length` pieces, each behind `prefix`.
void ForAllWords(const std::vector<std::string>& pieces, int length, const std::string& prefix,
                 const std::function<void(const std::string&)>& check) {
  check(prefix);
  if (length > 0) {
    for (const std::string& piece : pieces) {
      ForAllWords(pieces, length - 1, prefix + piece, check);
    }
  }
}

TEST(Validators, AgreeOnEveryByteInTypicalPlaces) {
  for (int a = 0; a < 256; ++a) {
    ExpectAgreement(std::string(1, static_cast<char>(a)));
    ExpectAgreement(std::string("a0") + static_cast<char>(a));
    ExpectAgreement("1.2.3.4" + std::string(1, static_cast<char>(a)));
    ExpectAgreement("a0:b1:c2:d3:e4:5" + std::string(1, static_cast<char>(a)));
    ExpectAgreement(std::string(1, static_cast<char>(a)) + ".2.3.4");
  }
}

TEST(Validators, AgreeOnEveryShortWord) {
  ForAllWords({"a", "Z", "0", "_", "-", "\n", "\x80", ":"}, 5, "", ExpectAgreement);
}

TEST(Validators, AgreeOnEveryAddressOfTypicalFields) {
  ForAllWords(
      {"0.", "00.", "01.", "9.", "99.", "199.", "249.", "255.", "256.", "-1.", ".", "1000."}, 3, "",
      [](const std::string& head) {
        for (const char* const last : {"0", "1", "255", "256", "", "1.", "1\n", "+1", "1a"}) {
          ExpectAgreement(head + last);
        }
      });
}

TEST(Validators, AgreeOnMutatedAddresses) {
  std::mt19937 random(20261123);
  const std::string alphabet = "0123456789abcdefABCDEFgG:.-_ \n";
  for (int i = 0; i < 20000; ++i) {
    std::string word = i % 2 == 0 ? "aA:0b:C0:dd:EE:f1" : "192.168.100.254";
    for (auto changes = random() % 3; changes > 0; --changes) {
      word[random() % word.size()] = alphabet[random() % alphabet.size()];
    }
    ExpectAgreement(word);
  }
  for (const char* const word : {"00:00:00:00:00:00", "FF:FF:FF:FF:FF:FF", "ff:ff:ff:ff:ff:ff",
                                 "Ff:FF:FF:FF:FF:FF", "00:00:00:00:00:01"}) {
    ExpectAgreement(word);
  }
}

TEST(Validators, BoundNamesAndTakeLongWordsInTheirStride) {
  EXPECT_TRUE(IsValidName(std::string(64, 'n')));
  EXPECT_FALSE(IsValidName(std::string(65, 'n')));
  const std::string huge(20'000'000, '7');
  EXPECT_TRUE(IsWord(huge));
  EXPECT_TRUE(IsNumber(huge));
  EXPECT_FALSE(IsWord(huge + '-'));
  EXPECT_FALSE(IsIpv4Address(huge));
  EXPECT_FALSE(IsMacAddress(huge));
}

}  // namespace
}  // namespace BrimletTest
