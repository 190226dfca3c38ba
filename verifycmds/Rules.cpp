#include "verifycmds/Rules.h"

#include <algorithm>

#include "utils/Numbers.h"
#include "utils/Validators.h"

namespace Velmar {
namespace {

using Word = const std::string&;
using Utils::HasNumberInRange;

constexpr Shape kAny{"any", "any word at all", [](Word) { return true; }};
constexpr Shape kOrvix0{"orvix0", "", [](Word word) { return word == "orvix0"; }};
constexpr Shape kWord{"word", "one or more ASCII letters, digits and underscores", Utils::IsWord};
constexpr Shape kWord16{"word-16", "a word of exactly 16 bytes",
                        [](Word word) { return word.size() == 16 && Utils::IsWord(word); }};
constexpr Shape kWord64{"word-64", "a word of exactly 64 bytes",
                        [](Word word) { return word.size() == 64 && Utils::IsWord(word); }};
constexpr Shape kPid{"process-number", "1 to 12 decimal digits",
                     [](Word word) { return word.size() <= 12 && Utils::IsNumber(word); }};
constexpr Shape kMac{"hardware-address",
                     "six pairs of hexadecimal digits joined by colons, but not "
                     "00:00:00:00:00:00, FF:FF:FF:FF:FF:FF or ff:ff:ff:ff:ff:ff",
                     Utils::IsMacAddress};
constexpr Shape kIpv4{"IPv4-address",
                      "four decimal numbers joined by dots, the first 1 to 255, the others 0 to "
                      "255, without leading zeros",
                      Utils::IsIpv4Address};
// The 5 GHz channels of Wi-Fi.
constexpr Shape kChannel{"channel", "begins with a number from 36 to 177",
                         [](Word word) { return HasNumberInRange(word, 36, 177); }};
constexpr Shape kPort{"port", "begins with a number from 0 to 65535",
                      [](Word word) { return HasNumberInRange(word, 0, 65535); }};
constexpr Shape kIndex{"index", "begins with a number from 0 to 99",
                       [](Word word) { return HasNumberInRange(word, 0, 99); }};

// clang-format off
constexpr Rule kRules[] = {
    // word 1          min max  word 2    word 3    word 4    word 5  word 6  word 0, if not any
    {"--exit",          2, 2, {},                                             "brimletd"},
    {"--add",           2, 2, {}},
    {"-a",              2, 2, {}},
    {"--delete",        2, 2, {}},
    {"-d",              2, 2, {}},
    {"--search",        2, 2, {}},
    {"-s",              2, 2, {}},
    {"--nopluginInput", 2, 2, {}},
    {"--nopluginNull",  2, 2, {}},
    {"--nohidden",      3, 3, {&kWord}},
    {"--btup",          3, 3, {&kWord}},
    {"--delVirt",       3, 3, {&kWord}},
    {"--unmanaged",     3, 3, {&kMac}},
    {"--kill",          3, 3, {&kPid}},
    {"--randomPort",    3, 3, {&kPort}},
    {"--randomPortDel", 3, 3, {&kPort}},
    {"--unblock",       3, 3, {&kIndex}},
    {"--setIP",         4, 4, {&kOrvix0,  &kIpv4}},
    {"--virt",          4, 4, {&kWord,    &kOrvix0}},
    {"--disconbt",      4, 4, {&kWord,    &kMac}},
    {"--hostapd",       6, 7, {&kChannel, &kWord16, &kWord64, &kAny,  &kAny}},
    {"--reload",        7, 7, {&kChannel, &kWord16, &kWord64, &kAny,  &kPid}},
};
// clang-format on

constexpr bool HasAllShapes(const Rule& rule) {
  const auto* const last = rule.arguments.begin() + (rule.maxWords - 2);
  return rule.minWords <= rule.maxWords && rule.maxWords <= kMaxWords &&
         std::find(rule.arguments.begin(), last, nullptr) == last;
}
static_assert(std::ranges::all_of(kRules, HasAllShapes));

// The words of a line, as Utils::Split() finds them: empty ones count, except one after a blank
// that ends the line. One more than any rule allows is kept, so that every rule refuses a longer
// line for its number of words, however many it has.
struct Words {
  explicit Words(std::string_view line) {
    while (!line.empty() && count < list.size()) {
      const std::size_t end = std::min(line.find(' '), line.size());
      list[count++] = line.substr(0, end);
      line.remove_prefix(std::min(end + 1, line.size()));
    }
  }

  std::array<std::string_view, kMaxWords + 1> list;
  std::size_t count = 0;
};

Verdict JudgeBy(const Rule& rule, const Words& words) {
  if (words.count < rule.minWords || words.count > rule.maxWords) {
    return {Fault::kWordCount, &rule};
  }
  if (!rule.program.empty() && words.list[0] != rule.program) {
    return {Fault::kProgram, &rule};
  }
  for (std::size_t i = 2; i < words.count; ++i) {
    if (!rule.arguments[i - 2]->matches(std::string(words.list[i]))) {
      return {Fault::kArgument, &rule, i};
    }
  }
  return {Fault::kNone, &rule};
}

}  // namespace

std::span<const Rule> GetRules() { return kRules; }

Verdict Judge(std::string_view line) {
  const Words words(line);
  if (words.count < 2) {
    return {Fault::kNoOption};
  }
  const auto* const rule = std::ranges::find(kRules, words.list[1], &Rule::option);
  return rule == std::end(kRules) ? Verdict{Fault::kUnknownOption} : JudgeBy(*rule, words);
}

}  // namespace Velmar
