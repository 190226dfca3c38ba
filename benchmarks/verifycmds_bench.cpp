#include <re2/re2.h>

#include <array>
#include <cstddef>
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
  explicit Words(std::string_view line) {
    std::size_t start = 0;
    for (std::size_t i = 0; i < line.size() && count < at.size(); ++i) {
      if (line[i] == ' ') {
        at[count++] = line.substr(start, i - start);
        start = i + 1;
      }
    }
    if (start < line.size() && count < at.size()) {
      at[count++] = line.substr(start);
    }
  }

  std::array<std::string_view, 8> at;
  std::size_t count = 0;
};

// Reads what the lines below hold: a sign or white space before the number is not known here.
bool IsChannel(std::string_view word) {
  unsigned value = 0;
  for (std::size_t i = 0; i < word.size() && IsDigit(word[i]) && value < 1000; ++i) {
    value = value * 10 + static_cast<unsigned>(word[i] - '0');
  }
  return value >= 36 && value <= 177;
}

// The floor leaves out 18 of the 22 options, the look-up in a table, and the call.
bool LeastIsValidCmd(std::string_view line) {
  const Words words(line);
  const auto& at = words.at;
  if (words.count < 2) {
    return false;
  }
  if (at[1] == "--add"sv) {
    return words.count == 2;
  }
  if (at[1] == "--setIP"sv) {
    return words.count == 4 && at[2] == "orvix0"sv && LeastIpv4Address(at[3]);
  }
  if (at[1] == "--disconbt"sv) {
    return words.count == 4 && ScanEach<IsWordChar>(at[2]) && LeastMacAddress(at[3]);
  }
  return at[1] == "--hostapd"sv && (words.count == 6 || words.count == 7) && IsChannel(at[2]) &&
         at[3].size() == 16 && ScanEach<IsWordChar>(at[3]) && at[4].size() == 64 &&
         ScanAll<IsWordChar>(at[4]);
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
