#include <re2/re2.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "benchmarks/LeastShapes.h"
#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "utils/Validators.h"

namespace BrimletBench {
namespace {

using std::string_view_literals::operator""sv;
namespace Utils = Velmar::Utils;

template <typename Ours, typename Floor>
void AddShape(const std::string& name, const std::string& word, Ours ours,
              std::pair<double, Floor> floor, std::pair<double, const RE2*> peer) {
  const auto byPattern = [pattern = peer.second](std::string_view text) {
    return RE2::FullMatch(re2::StringPiece(text.data(), text.size()), *pattern);
  };
  Require(ours(word) && floor.second(word) && byPattern(word), name.c_str());
  Line(name, Repeat(word, ours))
      .Floor(floor.first, Repeat(word, floor.second))
      .Peer("RE2", peer.first, Repeat(word, byPattern));
}

}  // namespace

void AddValidators() {
  static const RE2 wordPattern(R"(\w+)");
  static const RE2 numberPattern(R"(\d+)");
  // Does not know the three addresses that are refused.
  static const RE2 macPattern("([A-Fa-f0-9]{2}:){5}[A-Fa-f0-9]{2}");
  static const RE2 ipv4Pattern(
      R"((1\d{2}|2[0-4]\d|25[0-5]|[1-9]\d|[1-9])(\.(1\d{2}|2[0-4]\d|25[0-5]|[1-9]\d|\d)){3})");
  const std::string letters(4096, 'w');
  const std::string digits(4096, '7');
  const std::pair leastWord(1.5, Direct<ScanAll<IsWordChar>>());
  const std::pair leastNumber(1.5, Direct<ScanAll<IsDigit>>());
  AddShape("IsWord, 5 B", letters.substr(0, 5), Direct<Utils::IsWord>(),
           std::pair(1.5, Direct<ScanEach<IsWordChar>>()), {0.2, &wordPattern});
  AddShape("IsWord, 64 B", letters.substr(0, 64), Direct<Utils::IsWord>(), leastWord,
           {0.2, &wordPattern});
  AddShape("IsWord, 4 KiB", letters, Direct<Utils::IsWord>(), leastWord, {0.2, &wordPattern});
  AddShape("IsNumber, 5 B", digits.substr(0, 5), Direct<Utils::IsNumber>(),
           std::pair(1.5, Direct<ScanEach<IsDigit>>()), {0.2, &numberPattern});
  AddShape("IsNumber, 64 B", digits.substr(0, 64), Direct<Utils::IsNumber>(), leastNumber,
           {0.2, &numberPattern});
  AddShape("IsNumber, 4 KiB", digits, Direct<Utils::IsNumber>(), leastNumber,
           {0.2, &numberPattern});
  AddShape("IsMacAddress", "aA:0b:C0:dd:EE:f1", Direct<Utils::IsMacAddress>(),
           std::pair(2.0, Direct<LeastMacAddress>()), {0.1, &macPattern});
  AddShape("IsIpv4Address", "192.168.100.25", Direct<Utils::IsIpv4Address>(),
           std::pair(1.5, Direct<LeastIpv4Address>()), {0.1, &ipv4Pattern});
}

}  // namespace BrimletBench
