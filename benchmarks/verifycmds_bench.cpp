#include <re2/re2.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "benchmarks/LeastShapes.h"
#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "common/Singleton.h"
#include "verifycmds/verifycmds.h"

namespace BrimletBench {
namespace {

const Velmar::VerifyCmds& Policy() {
  return Velmar::SingletonNew<Velmar::VerifyCmds>::GetInstance();
}

bool IsValidCmd(std::string_view line) { return Policy().IsValidCmd(line); }

// The words of a line; one more than any rule allows is enough.
struct Words {
  struct Word {
    const char* text;
    std::size_t size;
  };

  explicit Words(std::string_view line) {
    const char* start = line.data();
    const char* const end = start + line.size();
    while (start != end && count < words.size()) {
      const auto* blank = static_cast<const char*>(std::memchr(start, ' ', Distance(start, end)));
      words[count++] = {start, Distance(start, blank == nullptr ? end : blank)};
      start = blank == nullptr ? end : blank + 1;
    }
  }

  std::string_view operator[](std::size_t i) const { return {words[i].text, words[i].size}; }

  static std::size_t Distance(const char* from, const char* to) {
    return static_cast<std::size_t>(to - from);
  }

  std::array<Word, 8> words;  // not views: these would be emptied first
  std::size_t count = 0;
};

// As std::stoi reads it, which is why white space, a sign and leading zeros are let through. A
// minus sign leads to no channel.
bool IsChannel(std::string_view word) {
  std::size_t i = 0;
  while (i < word.size() && (word[i] == ' ' || IsIn(word[i], '\t', '\r'))) {
    ++i;
  }
  i += static_cast<std::size_t>(i < word.size() && word[i] == '+');
  unsigned value = 0;
  for (; i < word.size() && IsDigit(word[i]) && value < 1000; ++i) {
    value = value * 10 + static_cast<unsigned>(word[i] - '0');
  }
  return value >= 36 && value <= 177;
}

enum class Option { kNone, kAdd, kSetIp, kHostapd, kDisconbt, kOther };

// All options, of which the length tells most apart.
Option OptionOf(std::string_view word) {
  const auto isOneOf = [word](auto... options) { return ((word == options) || ...); };
  const auto other = [](bool isOption) { return isOption ? Option::kOther : Option::kNone; };
  switch (word.size()) {
    case 2:
      return other(isOneOf("-a"sv, "-d"sv, "-s"sv));
    case 5:
      return word == "--add"sv ? Option::kAdd : Option::kNone;
    case 6:
      return other(isOneOf("--exit"sv, "--kill"sv, "--virt"sv, "--btup"sv));
    case 7:
      return word == "--setIP"sv ? Option::kSetIp : Option::kNone;
    case 8:
      return other(isOneOf("--delete"sv, "--search"sv, "--reload"sv));
    case 9:
      return word == "--hostapd"sv ? Option::kHostapd
                                   : other(isOneOf("--delVirt"sv, "--unblock"sv));
    case 10:
      return word == "--disconbt"sv ? Option::kDisconbt : other(word == "--nohidden"sv);
    case 11:
      return other(word == "--unmanaged"sv);
    case 12:
      return other(word == "--randomPort"sv);
    case 14:
      return other(word == "--nopluginNull"sv);
    case 15:
      return other(isOneOf("--nopluginInput"sv, "--randomPortDel"sv));
    default:
      return Option::kNone;
  }
}

// Leaves out the call, and the rules of the options that are not measured.
bool LeastIsValidCmd(std::string_view line) {
  const Words words(line);
  if (words.count < 2) {
    return false;
  }
  switch (OptionOf(words[1])) {
    case Option::kAdd:
      return words.count == 2;
    case Option::kSetIp:
      return words.count == 4 && words[2] == "orvix0"sv && LeastIpv4Address(words[3]);
    case Option::kHostapd:
      return (words.count == 6 || words.count == 7) && IsChannel(words[2]) &&
             words[3].size() == 16 && ScanEach<IsWordChar>(words[3]) && words[4].size() == 64 &&
             ScanAll<IsWordChar>(words[4]);
    case Option::kDisconbt:
      return words.count == 4 && ScanEach<IsWordChar>(words[2]) && LeastMacAddress(words[3]);
    case Option::kOther:
      return words.count == 2;
    default:
      return false;
  }
}

// The pattern knows the one option alone, and not the three addresses that are refused.
void AddOption(const char* option, const std::string& line, const char* pattern) {
  const auto byPattern = [compiled = std::make_shared<RE2>(pattern)](std::string_view text) {
    return RE2::FullMatch(re2::StringPiece(text.data(), text.size()), *compiled);
  };
  Require(IsValidCmd(line) && LeastIsValidCmd(line) && byPattern(line), option);
  Line(std::string("IsValidCmd, ").append(option), Repeat(line, Direct<IsValidCmd>()))
      .Floor(1.5, Repeat(line, Direct<LeastIsValidCmd>()))
      .Peer("RE2", 0.6, Repeat(line, byPattern));
}

}  // namespace

void AddVerifyCmds() {
  AddOption("--add", "iw --add", "[^ ]* --add ?");
  AddOption("--setIP", "ifconfig --setIP orvix0 192.168.100.25",
            R"([^ ]* --setIP orvix0 (1\d{2}|2[0-4]\d|25[0-5]|[1-9]\d|[1-9]))"
            R"((\.(1\d{2}|2[0-4]\d|25[0-5]|[1-9]\d|\d)){3} ?)");
  AddOption("--hostapd",
            "hostapd --hostapd 149 ORVIX_0123456789 "
            "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef /tmp/x",
            R"([^ ]* --hostapd [\t-\r]*\+?0*(3[6-9]|[4-9]\d|1[0-6]\d|17[0-7])([^\d ][^ ]*)?)"
            R"( \w{16} \w{64} [^ ]*( [^ ]+)? ?)");
  AddOption("--disconbt", "bluetoothctl --disconbt hci0 aA:0b:C0:dd:EE:f1",
            R"([^ ]* --disconbt \w+ ([A-Fa-f0-9]{2}:){5}[A-Fa-f0-9]{2} ?)");
  const Run judge = Repeat(std::string(1000000, ' '), Direct<IsValidCmd>());
  Line("IsValidCmd, 1 MB of blanks", judge).Count("allocations", 0, CountingAllocations(judge));
}

}  // namespace BrimletBench
