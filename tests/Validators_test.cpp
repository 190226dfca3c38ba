#include "utils/Validators.h"

#include <gtest/gtest.h>

#include <regex>

using namespace Velmar::Utils;

const std::string kHex = "[A-Fa-f\\d]{2}", kByte = "(25[0-5]|2[0-4]\\d|1\\d\\d|[1-9]?\\d)";
const std::pair<bool (*)(const std::string&), std::regex> kValidators[] = {
    {IsWord, std::regex("\\w+")},
    {IsNumber, std::regex("\\d+")},
    {IsValidName, std::regex("[A-Za-z\\d_-]{0,64}")},
    {IsIpv4Address, std::regex("(?!0)(" + kByte + "\\.){3}" + kByte)},
    {IsMacAddress, std::regex("(?!00(:00){5}|FF(:FF){5}|ff(:ff){5})(" + kHex + ":){5}" + kHex)}};

// On every word of up to `length` of the pieces behind `head`.
void ExpectAgreement(const std::string& head, int length, const std::vector<std::string>& pieces) {
  for (const auto& [accepts, pattern] : kValidators)
    EXPECT_EQ(accepts(head), std::regex_match(head, pattern)) << testing::PrintToString(head);
  for (std::size_t i = 0; length > 0 && i < pieces.size(); ++i)
    ExpectAgreement(head + pieces[i], length - 1, pieces);
}

TEST(Validators, AgreeWithTheirPatterns) {
  ExpectAgreement("", 4, {"0.", "00.", "9.", "99.", "249.", "255.", "256.", "-1.", "1000.", "1"});
  for (const std::string pair : {"00", "FF", "ff", "aF"})
    ExpectAgreement(pair, 5, {":00", ":FF", ":ff", "-ff"});
  for (int byte = 0; byte < 256; ++byte)
    for (const std::string head : {"", "n", "1.2.3.", "A0:00:00:00:00:0"})
      ExpectAgreement(head + static_cast<char>(byte), 1, {"0"});
  ExpectAgreement(std::string(63, 'n'), 2, {"n"});
}
