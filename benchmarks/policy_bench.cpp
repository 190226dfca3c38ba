// How long it takes to judge a word or a line, next to RE2. The patterns know one option word each,
// and not the hardware addresses that are refused.
#include <benchmark/benchmark.h>
#include <re2/re2.h>

#include <cstddef>
#include <string>

#include "common/Singleton.h"
#include "utils/Validators.h"
#include "verifycmds/verifycmds.h"

namespace {

using benchmark::State;

constexpr const char* kMac = "aA:0b:C0:dd:EE:f1";
constexpr const char* kIpv4 = "192.168.100.25";
constexpr const char* kAdd = "iw --add";
constexpr const char* kSetIp = "ifconfig --setIP orvix0 192.168.100.25";
constexpr const char* kHostapd =
    "hostapd --hostapd 149 ORVIX_0123456789 "
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef /tmp/x";
constexpr const char* kDisconbt = "bluetoothctl --disconbt hci0 aA:0b:C0:dd:EE:f1";

#define MAC_PATTERN "([A-Fa-f0-9]{2}:){5}[A-Fa-f0-9]{2}"
#define IPV4_PATTERN \
  R"((1\d{2}|2[0-4]\d|25[0-5]|[1-9]\d|[1-9])(\.(1\d{2}|2[0-4]\d|25[0-5]|[1-9]\d|\d)){3})"

// Judges an allowed text of which the compiler knows nothing.
template <typename Judge>
void Repeat(State& state, std::string text, const Judge& judge) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(text);
    if (!judge(text)) {
      state.SkipWithError("refused");
      break;
    }
  }
}

void RepeatRE2(State& state, const std::string& text, const char* pattern) {
  const RE2 compiled(pattern);
  Repeat(state, text, [&](const std::string& line) { return RE2::FullMatch(line, compiled); });
}

std::string Fill(const State& state, char c) {
  return std::string(static_cast<std::size_t>(state.range(0)), c);
}

void IsWord(State& state) { Repeat(state, Fill(state, 'w'), Velmar::Utils::IsWord); }
BENCHMARK(IsWord)->Arg(5)->Arg(64)->Arg(4096);
void IsWord_RE2(State& state) { RepeatRE2(state, Fill(state, 'w'), R"(\w+)"); }
BENCHMARK(IsWord_RE2)->Arg(5)->Arg(64)->Arg(4096);

void IsNumber(State& state) { Repeat(state, Fill(state, '7'), Velmar::Utils::IsNumber); }
BENCHMARK(IsNumber)->Arg(5)->Arg(64)->Arg(4096);
void IsNumber_RE2(State& state) { RepeatRE2(state, Fill(state, '7'), R"(\d+)"); }
BENCHMARK(IsNumber_RE2)->Arg(5)->Arg(64)->Arg(4096);

void IsMacAddress(State& state) { Repeat(state, kMac, Velmar::Utils::IsMacAddress); }
BENCHMARK(IsMacAddress);
BENCHMARK_CAPTURE(RepeatRE2, mac, kMac, MAC_PATTERN)->Name("IsMacAddress_RE2");

void IsIpv4Address(State& state) { Repeat(state, kIpv4, Velmar::Utils::IsIpv4Address); }
BENCHMARK(IsIpv4Address);
BENCHMARK_CAPTURE(RepeatRE2, ipv4, kIpv4, IPV4_PATTERN)->Name("IsIpv4Address_RE2");

void Policy(State& state, const char* line) {
  const auto& policy = Velmar::SingletonNew<Velmar::VerifyCmds>::GetInstance();
  Repeat(state, line, [&](const std::string& text) { return policy.IsValidCmd(text); });
}
BENCHMARK_CAPTURE(Policy, add, kAdd);
BENCHMARK_CAPTURE(Policy, setIP, kSetIp);
BENCHMARK_CAPTURE(Policy, hostapd, kHostapd);
BENCHMARK_CAPTURE(Policy, disconbt, kDisconbt);

void Policy_RE2(State& state, const char* line, const char* pattern) {
  RepeatRE2(state, line, pattern);
}
BENCHMARK_CAPTURE(Policy_RE2, add, kAdd, "[^ ]* --add ?");
BENCHMARK_CAPTURE(Policy_RE2, setIP, kSetIp, "[^ ]* --setIP orvix0 " IPV4_PATTERN " ?");
BENCHMARK_CAPTURE(Policy_RE2, hostapd, kHostapd,
                  R"([^ ]* --hostapd [\t-\r]*\+?0*(3[6-9]|[4-9]\d|1[0-6]\d|17[0-7])([^\d ][^ ]*)?)"
                  R"( \w{16} \w{64} [^ ]*( [^ ]+)? ?)");
BENCHMARK_CAPTURE(Policy_RE2, disconbt, kDisconbt, R"([^ ]* --disconbt \w+ )" MAC_PATTERN " ?");

}  // namespace
