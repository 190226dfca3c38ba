#include <fcntl.h>
#include <openssl/rand.h>
#include <sodium.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "common/RandomCode.h"
#include "common/UniqueFd.h"

namespace BrimletBench {
namespace {

constexpr std::string_view kPasswordSet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789~@#%^*_=+[{}],./?";
constexpr std::string_view kLetterSet = kPasswordSet.substr(0, 52);

using Text = std::array<char, 256>;

void Reseed() {
  std::array<unsigned char, 64> seed{};
  const Velmar::UniqueFd device(open("/dev/random", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  Require(read(device.Get(), seed.data(), seed.size()) == 64, "/dev/random");
  RAND_poll();
  RAND_seed(seed.data(), static_cast<int>(seed.size()));
}

// One reseed and one draw. Leaves out the wiping of the numbers, the wait for a kernel that has no
// entropy yet, and that the characters of a password are not all of one class.
void LeastText(char* text, std::size_t length, std::string_view set) {
  Reseed();
  std::array<std::uint32_t, 256> numbers;
  RAND_priv_bytes(reinterpret_cast<unsigned char*>(numbers.data()), static_cast<int>(length * 4));
  for (std::size_t i = 0; i < length; ++i) {
    text[i] = set[numbers[i] % set.size()];
  }
}

// Never takes a seed from outside.
void TextByPeer(char* text, std::size_t length, std::string_view set) {
  for (std::size_t i = 0; i < length; ++i) {
    text[i] = set[randombytes_uniform(static_cast<std::uint32_t>(set.size()))];
  }
}

void AddPassword(std::size_t length) {
  const auto draw = [length](Text& text) {
    Velmar::RandomCode::GetRandomPasswd(text.data(), static_cast<std::int32_t>(length));
    return text[0];
  };
  const auto least = [length](Text& text) {
    LeastText(text.data(), length, kPasswordSet);
    return text[0];
  };
  const auto byPeer = [length](Text& text) {
    TextByPeer(text.data(), length, kPasswordSet);
    return text[0];
  };
  Line("GetRandomPasswd(" + std::to_string(length) + ")", Repeat(Text{}, draw))
      .Floor(1.2, Repeat(Text{}, least))
      .Peer("libsodium", {}, Repeat(Text{}, byPeer));
}

void AddLetters() {
  const auto least = [](std::int32_t length) {
    std::string text(static_cast<std::size_t>(length), '\0');
    LeastText(text.data(), text.size(), kLetterSet);
    return text;
  };
  const auto byPeer = [](std::int32_t length) {
    std::string text(static_cast<std::size_t>(length), '\0');
    TextByPeer(text.data(), text.size(), kLetterSet);
    return text;
  };
  Line("GetRandomLetters(32)", Repeat(32, Direct<Velmar::RandomCode::GetRandomLetters>()))
      .Floor(1.2, Repeat(32, least))
      .Peer("libsodium", {}, Repeat(32, byPeer));
}

}  // namespace

void AddRandomCode() {
  Require(sodium_init() >= 0, "sodium_init");
  AddPassword(16);
  AddPassword(256);
  AddLetters();
}

}  // namespace BrimletBench
