// Looks for a secret on a stack that was left. Built with the library's sources, optimised at link
// time: a wipe that may be left out, since nothing reads the memory again, is left out here.
#include <gtest/gtest.h>
#include <ucontext.h>

#include <cstring>

#include "common/BoundsChecked.h"
#include "common/RandomCode.h"

template <auto kWipe>
[[gnu::noinline]] void HoldSecret() {
  char secret[200];
  for (volatile char& byte : secret) byte = 's';
  kWipe(secret, sizeof secret);
}

template <auto kWipe>
bool IsSecretLeft() {
  static ucontext_t here, there;
  std::string stack(1U << 18U, '\0');
  // cppcheck-suppress getcontextCalled
  getcontext(&there);
  there.uc_stack = {.ss_sp = stack.data(), .ss_flags = 0, .ss_size = stack.size()};
  there.uc_link = &here;
  // cppcheck-suppress makecontextCalled
  makecontext(&there, HoldSecret<kWipe>, 0);
  // cppcheck-suppress swapcontextCalled
  swapcontext(&here, &there);
  return stack.find(std::string(16, 's')) != std::string::npos;
}

TEST(Wipe, IsNotLeftOutThoughNothingReadsTheMemoryAgain) {
  EXPECT_TRUE((IsSecretLeft<[](char* at, int size) { std::memset(at, 0, size); }>()));
  EXPECT_FALSE((IsSecretLeft<[](char* at, int size) { Velmar::memset_s(at, size, 0, size); }>()));
  EXPECT_FALSE(IsSecretLeft<Velmar::RandomCode::ClearSensitiveData>());
}
