// How long it takes to judge an allowed word or line, next to RE2. The patterns know one option
// word each, and not the hardware addresses that are refused.
#include <benchmark/benchmark.h>
#include <re2/re2.h>

#include <iterator>
#include <string>

#include "common/Singleton.h"
#include "utils/Validators.h"
#include "verifycmds/verifycmds.h"

namespace {

using benchmark::State;
using namespace Velmar::Utils;  // NOLINT(google-build-using-namespace): the validators

#define MAC "([A-Fa-f0-9]{2}:){5}[A-Fa-f0-9]{2}"
#define IPV4 R"((1\d{2}|2[0-4]\d|25[0-5]|[1-9]\d|[1-9])(\.(1\d{2}|2[0-4]\d|25[0-5]|[1-9]\d|\d)){3})"
#define CHANNEL R"([\t-\r]*\+?0*(3[6-9]|[4-9]\d|1[0-6]\d|17[0-7])([^\d ][^ ]*)?)"

bool IsAllowed(const std::string& line) {
  return Velmar::SingletonNew<Velmar::VerifyCmds>::GetInstance().IsValidCmd(line);
}

const struct Case {
  const char* name;
  bool (*judge)(const std::string& text);
  std::string text;
  const char* pattern;
} kCases[] = {
    {"IsWord, 5 bytes", IsWord, std::string(5, 'w'), R"(\w+)"},
    {"IsWord, 4 KiB", IsWord, std::string(4096, 'w'), R"(\w+)"},
    {"IsNumber, 5 bytes", IsNumber, std::string(5, '7'), R"(\d+)"},
    {"IsNumber, 4 KiB", IsNumber, std::string(4096, '7'), R"(\d+)"},
    {"IsMacAddress", IsMacAddress, "aA:0b:C0:dd:EE:f1", MAC},
    {"IsIpv4Address", IsIpv4Address, "192.168.100.25", IPV4},
    {"policy, --add", IsAllowed, "iw --add", "[^ ]* --add ?"},
    {"policy, --setIP", IsAllowed, "ifconfig --setIP orvix0 192.168.100.25",
     "[^ ]* --setIP orvix0 " IPV4 " ?"},
    {"policy, --hostapd", IsAllowed,
     "x --hostapd 149 " + std::string(16, 'n') + " " + std::string(64, 'k') + " /tmp/x",
     "[^ ]* --hostapd " CHANNEL R"( \w{16} \w{64} [^ ]*( [^ ]+)? ?)"},
    {"policy, --disconbt", IsAllowed, "bluetoothctl --disconbt hci0 aA:0b:C0:dd:EE:f1",
     R"([^ ]* --disconbt \w+ )" MAC " ?"},
};

template <typename Function>
void Repeat(State& state, std::string text, const Function& judge) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(text);
    if (!judge(text)) {
      state.SkipWithError("refused");
      break;
    }
  }
}

void Judge(State& state) {
  const Case& entry = kCases[state.range(0)];
  state.SetLabel(entry.name);
  Repeat(state, entry.text, entry.judge);
}
BENCHMARK(Judge)->DenseRange(0, std::size(kCases) - 1);

void Judge_RE2(State& state) {
  const Case& entry = kCases[state.range(0)];
  state.SetLabel(entry.name);
  const RE2 pattern(entry.pattern);
  Repeat(state, entry.text, [&](const std::string& text) { return RE2::FullMatch(text, pattern); });
}
BENCHMARK(Judge_RE2)->DenseRange(0, std::size(kCases) - 1);

}  // namespace
