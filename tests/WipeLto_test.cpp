// Looks for a secret on the stack of a thread that has ended. Optimised at link time with the
// library: a wipe that may be left out, since nothing reads the memory again, is left out here.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>

#include "common/BoundsChecked.h"
#include "common/RandomCode.h"

template <auto kWipe>
bool IsSecretLeft() {
  const auto hold_secret = [](void*) -> void* {
    char secret[4000];  // the end of the thread writes over the first few hundred
    for (volatile char& byte : secret) byte = 's';
    kWipe(secret, sizeof secret);
    return nullptr;
  };
  std::string stack(1U << 18U, '\0');
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  EXPECT_EQ(pthread_attr_setstack(&attributes, stack.data(), stack.size()), 0);
  pthread_t thread{};
  EXPECT_EQ(pthread_create(&thread, &attributes, hold_secret, nullptr), 0);
  pthread_join(thread, nullptr);
  return stack.find(std::string(16, 's')) != std::string::npos;
}

TEST(Wipe, IsNotLeftOutThoughNothingReadsTheMemoryAgain) {
  EXPECT_TRUE((IsSecretLeft<[](char* at, int size) { std::memset(at, 0, size); }>()));
  EXPECT_FALSE((IsSecretLeft<[](char* at, int size) { Velmar::memset_s(at, size, 0, size); }>()));
  EXPECT_FALSE(IsSecretLeft<Velmar::RandomCode::ClearSensitiveData>());
}
