// Looks for a secret in the memory of a thread that has ended. Built with the library's sources in
// one optimised, link-time-optimised program, where the compiler sees that nothing reads the memory
// again: a wipe that may be left out is left out here, and plain memset() shows that it is.
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <cstring>
#include <string>

#include "common/BoundsChecked.h"
#include "common/RandomCode.h"

namespace BrimletTest {
namespace {

constexpr std::size_t kSecretSize = 200;
constexpr std::size_t kStackSize = std::size_t{1} << 20U;

// Computed, so that it is not a text of the program as well.
unsigned char SecretByte(std::size_t i) { return static_cast<unsigned char>(i * 37 + 11); }

// Not a pointer to the wipe but a type, so that the wipe can be merged with its caller.
template <typename Wipe>
[[gnu::noinline]] void HoldSecret() {
  std::array<unsigned char, kSecretSize> secret;
  // Byte by byte, so that no copy of the secret is left in a register's spill.
  auto* const bytes = static_cast<volatile unsigned char*>(secret.data());
  for (std::size_t i = 0; i < secret.size(); ++i) {
    bytes[i] = SecretByte(i);
  }
  Wipe()(secret.data(), secret.size());
}

// The stack on which HoldSecret() ran.
template <typename Wipe>
std::string StackAfter() {
  std::string stack(kStackSize, '\0');
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  EXPECT_EQ(pthread_attr_setstack(&attributes, stack.data(), stack.size()), 0);
  pthread_t thread{};
  const auto run = [](void* /*unused*/) -> void* {
    // Keeps what the thread does after it away from the place of the secret.
    std::array<char, 65536> gap;
    asm volatile("" : : "r"(gap.data()) : "memory");
    HoldSecret<Wipe>();
    asm volatile("" : : "r"(gap.data()) : "memory");
    return nullptr;
  };
  EXPECT_EQ(pthread_create(&thread, &attributes, run, nullptr), 0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
  return stack;
}

bool HasSecret(const std::string& stack) {
  std::string start;
  for (std::size_t i = 0; i < 16; ++i) {
    start.push_back(static_cast<char>(SecretByte(i)));
  }
  return stack.find(start) != std::string::npos;
}

struct PlainMemset {
  void operator()(void* memory, std::size_t size) const { std::memset(memory, 0, size); }
};
struct BoundsCheckedMemset {
  void operator()(void* memory, std::size_t size) const { Velmar::memset_s(memory, size, 0, size); }
};
struct Clear {
  void operator()(void* memory, std::size_t size) const {
    Velmar::RandomCode::ClearSensitiveData(memory, static_cast<int32_t>(size));
  }
};

TEST(Wipe, IsNotLeftOutBecauseNothingReadsTheMemoryAgain) {
  EXPECT_TRUE(HasSecret(StackAfter<PlainMemset>())) << "nothing is left out: this shows nothing";
  EXPECT_FALSE(HasSecret(StackAfter<BoundsCheckedMemset>()));
  EXPECT_FALSE(HasSecret(StackAfter<Clear>()));
}

TEST(Wipe, EndsWithThePoolInTheMemory) {
  Velmar::RandomCode::CreateRandomPool();
  const auto* const pool =
      reinterpret_cast<const char*>(Velmar::RandomCode::GetRandomPool(kSecretSize));
  ASSERT_NE(pool, nullptr);
  EXPECT_NE(StackAfter<Clear>().find(std::string(pool, kSecretSize)), std::string::npos);
}

}  // namespace
}  // namespace BrimletTest
