#include <sodium.h>

#include <array>
#include <cstddef>
#include <cstring>

#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "common/BoundsChecked.h"

namespace BrimletBench {
namespace {

// The same memory for all: where it lies makes a difference.
using Bytes = std::array<char, 102400>;
alignas(64) Bytes g_target;
alignas(64) Bytes g_source;

int Memset(int value) {
  return Velmar::memset_s(g_target.data(), g_target.size(), value, g_target.size());
}

int Memcpy(std::size_t size) {
  return Velmar::memcpy_s(g_target.data(), g_target.size(), g_source.data(), size);
}

// The floors leave out the checks. To the compiler ClobberMemory() may read all memory, so that the
// stores before it have to happen.
int LeastMemset(int value) {
  std::memset(g_target.data(), value, g_target.size());
  benchmark::ClobberMemory();
  return 0;
}

int LeastMemmove(std::size_t size) {
  std::memmove(g_target.data(), g_source.data(), size);
  benchmark::ClobberMemory();
  return 0;
}

int MemsetByPeer(int /*value*/) {
  sodium_memzero(g_target.data(), g_target.size());
  return 0;
}

}  // namespace

void AddBoundsChecked() {
  Line("memset_s, 100 KiB", Repeat(0, Direct<Memset>()))
      .Floor(1.1, Repeat(0, Direct<LeastMemset>()))
      .Peer("libsodium", {}, Repeat(0, Direct<MemsetByPeer>()));
  Line("memcpy_s, 100 KiB", Repeat(g_source.size(), Direct<Memcpy>()))
      .Floor(1.1, Repeat(g_source.size(), Direct<LeastMemmove>()));
}

}  // namespace BrimletBench
