// How long it takes to draw a text, next to libsodium, which asks the kernel for each character
// where ours seeds its generator once.
#include <benchmark/benchmark.h>
#include <sodium.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "common/RandomCode.h"

namespace {

using benchmark::State;

constexpr std::string_view kPasswordSet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789~@#%^*_=+[{}],./?";
constexpr std::string_view kLetterSet = kPasswordSet.substr(0, 52);

void DrawBySodium(State& state, std::string_view set) {
  std::string text(static_cast<std::size_t>(state.range(0)), '\0');
  for (auto _ : state) {
    for (char& c : text) {
      c = set[randombytes_uniform(static_cast<std::uint32_t>(set.size()))];
    }
    benchmark::DoNotOptimize(text);
  }
}

void Password(State& state) {
  std::string text(static_cast<std::size_t>(state.range(0)), '\0');
  for (auto _ : state) {
    Velmar::RandomCode::GetRandomPasswd(text.data(), static_cast<std::int32_t>(text.size()));
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(Password)->Arg(16)->Arg(256);
void Password_libsodium(State& state) { DrawBySodium(state, kPasswordSet); }
BENCHMARK(Password_libsodium)->Arg(16)->Arg(256);

void Letters(State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        Velmar::RandomCode::GetRandomLetters(static_cast<std::int32_t>(state.range(0))));
  }
}
BENCHMARK(Letters)->Arg(32);
void Letters_libsodium(State& state) { DrawBySodium(state, kLetterSet); }
BENCHMARK(Letters_libsodium)->Arg(32);

}  // namespace
