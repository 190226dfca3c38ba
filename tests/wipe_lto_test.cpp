// Looks for a secret below the stack, where a function that has returned kept it. Optimised at link
// time with the library: the optimiser drops a wipe that it may drop, since nothing reads on.
#include <gtest/gtest.h>

#include <algorithm>

#include "common/BoundsChecked.h"
#include "common/RandomCode.h"

template <auto kWipe>
[[gnu::noinline]] void HoldSecret() {
  char secret[4000];
  for (volatile char& byte : secret) byte = 's';
  kWipe(secret, 200);
  kWipe(secret + 200, sizeof secret - 200);
}

bool IsSecretLeftBy(void (*hold_secret)()) {
  hold_secret();
  const auto* const frame = static_cast<volatile char*>(__builtin_frame_address(0));
  return std::count(frame - 8000, frame, 's') > 100;
}

TEST(Wipe, IsNotLeftOutThoughNothingReadsTheMemoryAgain) {
  EXPECT_TRUE(IsSecretLeftBy(HoldSecret<[](char* at, int n) { std::fill_n(at, n, 0); }>));
  EXPECT_FALSE(IsSecretLeftBy(HoldSecret<[](char* at, int n) { Velmar::memset_s(at, n, 0, n); }>));
  EXPECT_FALSE(IsSecretLeftBy(HoldSecret<Velmar::RandomCode::ClearSensitiveData>));
}
