#include "common/RandomCode.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string_view>

#include "common/BoundsChecked.h"
#include "common/CoveredFile.h"
#include "common/ErrorCode.h"
#include "common/FileIo.h"
#include "common/LogStatement.h"

namespace Velmar::RandomCode {
namespace {

using ErrorCode::CommonStatus::ACTION_SUCCESS;
using ErrorCode::CommonStatus::GET_RANDOM_SEEDS_FAILED;
using ErrorCode::CommonStatus::POINTER_IS_NULL;
using Clock = std::chrono::steady_clock;

constexpr const char* kModule = "UTILS";
constexpr const char* kSeedDevice = "/dev/random";
constexpr std::size_t kSeedSize = 64;
constexpr std::chrono::seconds kEntropyPatience{10};
constexpr int kMaxReadFailures = 9;

constexpr std::string_view kPasswordSet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789~@#%^*_=+[{}],./?";
constexpr std::string_view kDigitSet = "0123456789";
constexpr std::string_view kLetterSet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::int32_t kMinPasswordLength = 8;
constexpr std::int32_t kMinTextLength = 6;
constexpr std::int32_t kMaxTextLength = 256;
// A working generator stays in one class that often less than once in 10^61 times.
constexpr int kMaxRedraws = 128;

constexpr std::int32_t kPoolSize = 256;
std::array<unsigned char, kPoolSize> g_randomPool{};

constexpr std::int64_t kMaxCoveredSize = 1048576;

// Bytes that nobody is to find in memory afterwards.
template <std::size_t N>
class SecretBytes {
 public:
  SecretBytes() = default;
  SecretBytes(const SecretBytes&) = delete;
  SecretBytes& operator=(const SecretBytes&) = delete;
  ~SecretBytes() { OPENSSL_cleanse(mBytes.data(), mBytes.size()); }

  [[nodiscard]] unsigned char* Data() { return mBytes.data(); }
  [[nodiscard]] const unsigned char* Data() const { return mBytes.data(); }

 private:
  std::array<unsigned char, N> mBytes{};
};

// False when the device had nothing to give until `deadline`.
bool WaitForEntropy(int fd, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  if (left.count() <= 0) {
    return false;
  }
  pollfd device{.fd = fd, .events = POLLIN, .revents = 0};
  const int ready = poll(&device, 1, static_cast<int>(left.count()));
  return ready > 0 || (ready < 0 && errno == EINTR);
}

bool ReadEntropy(int fd, unsigned char* buffer, std::size_t length) {
  const Clock::time_point deadline = Clock::now() + kEntropyPatience;
  int failures = 0;
  while (length > 0) {
    const ssize_t got = read(fd, buffer, length);
    if (got > 0) {
      buffer += got;
      length -= static_cast<std::size_t>(got);
      failures = 0;
    } else if (got < 0 && errno == EAGAIN) {
      if (!WaitForEntropy(fd, deadline)) {
        return false;
      }
    } else if (got == 0 || errno != EINTR) {
      if (++failures == kMaxReadFailures) {
        return false;
      }
    }
  }
  return true;
}

// RAND_priv_bytes() has more than one way to say no.
bool DrawBytes(unsigned char* buffer, std::int32_t length) {
  return RAND_priv_bytes(buffer, length) == 1;
}

std::uint32_t ReadBigEndian(const unsigned char* bytes) {
  return std::uint32_t{bytes[0]} << 24U | std::uint32_t{bytes[1]} << 16U |
         std::uint32_t{bytes[2]} << 8U | std::uint32_t{bytes[3]};
}

// Fills a text of at most kMaxTextLength characters with those of `set`, each drawn on its own.
// False, and the text is untouched: the draw has failed.
bool DrawFrom(std::string_view set, std::span<char> text) {
  constexpr std::size_t kWidth = sizeof(std::uint32_t);
  SecretBytes<kMaxTextLength * kWidth> numbers;
  if (!DrawBytes(numbers.Data(), static_cast<std::int32_t>(text.size() * kWidth))) {
    return false;
  }
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = set[ReadBigEndian(numbers.Data() + i * kWidth) % set.size()];
  }
  return true;
}

enum class CharClass { kLowerCase, kUpperCase, kDigit, kOther };

CharClass ClassOf(char c) {
  const std::size_t index = kPasswordSet.find(c);
  if (index < 26) {
    return CharClass::kLowerCase;
  }
  if (index < 52) {
    return CharClass::kUpperCase;
  }
  return index < 62 ? CharClass::kDigit : CharClass::kOther;
}

// Draws the last character again as long as all are of one class.
bool DrawPassword(std::span<char> text) {
  const auto isOfFirstClass = [text](char c) { return ClassOf(c) == ClassOf(text[0]); };
  bool isDrawn = DrawFrom(kPasswordSet, text);
  for (int redraws = 0; isDrawn && std::ranges::all_of(text, isOfFirstClass); ++redraws) {
    isDrawn = redraws < kMaxRedraws && DrawFrom(kPasswordSet, text.last(1));
  }
  return isDrawn;
}

// Reseeds and draws, with the ERROR lines that digits and letters have in common.
bool DrawText(std::string_view set, char* text, std::int32_t length) {
  if (SeedRandom() != ACTION_SUCCESS) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "get random seed failed.");
    return false;
  }
  if (!DrawFrom(set, {text, static_cast<std::size_t>(length)})) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Get random number failed.");
    return false;
  }
  return true;
}

bool IsTextLength(std::int32_t length) {
  const bool isValid = length >= kMinTextLength && length <= kMaxTextLength;
  if (!isValid) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Input number[%d] error", length);
  }
  return isValid;
}

// One pass over a file; `step` is its name in the log.
std::int32_t Cover(CoveredFile& file, std::span<const char> bytes, const char* step) {
  const std::int32_t result = file.Overwrite({bytes.data(), bytes.size()});
  if (result != ACTION_SUCCESS) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "%s WriteToFile failed ret:%d", step, result);
  }
  return result;
}

std::int32_t CoverThreeTimes(CoveredFile& file, std::size_t size) {
  // Without memory there are no bytes, which the first pass reports like any other failure.
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[size]);
  const std::span<char> bytes(buffer.get(), buffer ? size : 0);
  for (const char value : {'\0', '\1'}) {
    std::ranges::fill(bytes, value);
    const std::int32_t result = Cover(file, bytes, "SafeCoverData");
    if (result != ACTION_SUCCESS) {
      return result;
    }
  }
  const std::int32_t drawn = GetRandNumBytes(reinterpret_cast<unsigned char*>(bytes.data()),
                                             static_cast<std::int32_t>(bytes.size()));
  if (drawn != 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "SafeCoverDataRandom GetAuthentRandomNum failed ret:%d",
                drawn);
    return drawn;
  }
  return Cover(file, bytes, "SafeCoverDataRandom");
}

}  // namespace

std::int32_t ReadDevRandom(unsigned char* buffer, std::int32_t length) {
  if (buffer == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "null buf input, error code: %s",
                ErrorCode::GetLogText(POINTER_IS_NULL).c_str());
    return POINTER_IS_NULL;
  }
  const UniqueFd device(open(kSeedDevice, O_RDONLY | FileIo::kSafeOpenFlags));
  if (!device.IsOpen()) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to open /dev/random, error code: %s",
                std::strerror(errno));
    return GET_RANDOM_SEEDS_FAILED;
  }
  if (length > 0 && !ReadEntropy(device.Get(), buffer, static_cast<std::size_t>(length))) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "get random number failed, out of try times.");
    return GET_RANDOM_SEEDS_FAILED;
  }
  return ACTION_SUCCESS;
}

std::uint32_t GetRandomUint32() {
  SecretBytes<sizeof(std::uint32_t)> bytes;
  return DrawBytes(bytes.Data(), sizeof(std::uint32_t)) ? ReadBigEndian(bytes.Data()) : 0;
}

std::int32_t SeedRandom() {
  // First, as it gives up after ten seconds: RAND_poll() waits for the first entropy without end.
  SecretBytes<kSeedSize> seed;
  if (ReadDevRandom(seed.Data(), kSeedSize) != ACTION_SUCCESS) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Get random number failed.");
    return GET_RANDOM_SEEDS_FAILED;
  }
  RAND_poll();
  RAND_seed(seed.Data(), kSeedSize);
  return ACTION_SUCCESS;
}

std::int32_t GetRandNumBytes(unsigned char* buffer, std::int32_t length) {
  if (buffer == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "null data input, error code: %s",
                ErrorCode::GetLogText(POINTER_IS_NULL).c_str());
    return -1;
  }
  if (length < 1) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Input number[%d] error", length);
    return -1;
  }
  if (SeedRandom() != ACTION_SUCCESS) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "get random seed failed.");
    return -1;
  }
  if (!DrawBytes(buffer, length)) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "GetRandNumBytes RAND_bytes failed");
    return -1;
  }
  return 0;
}

void GetRandomPasswd(char* buffer, std::int32_t length) {
  if (buffer == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "null buf input, error code: %s",
                ErrorCode::GetLogText(POINTER_IS_NULL).c_str());
    return;
  }
  if (length < kMinPasswordLength || length > kMaxTextLength) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Input passwd length error, len = %d", length);
    return;
  }
  if (SeedRandom() != ACTION_SUCCESS) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "get random seed failed.");
    return;
  }
  SecretBytes<kMaxTextLength> password;
  const std::span<char> text(reinterpret_cast<char*>(password.Data()),
                             static_cast<std::size_t>(length));
  if (!DrawPassword(text)) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Get random number failed.");
    return;
  }
  std::ranges::copy(text, buffer);
}

std::int32_t GetRandomDigits(char* buffer, std::int32_t length) {
  if (buffer == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "null buf input, error code: %s",
                ErrorCode::GetLogText(POINTER_IS_NULL).c_str());
    return -1;
  }
  return IsTextLength(length) && DrawText(kDigitSet, buffer, length) ? 0 : -1;
}

std::string GetRandomLetters(std::int32_t length) {
  if (!IsTextLength(length)) {
    return "";
  }
  std::string letters(static_cast<std::size_t>(length), '\0');
  return DrawText(kLetterSet, letters.data(), length) ? letters : "";
}

void CreateRandomPool() {
  if (GetRandNumBytes(g_randomPool.data(), kPoolSize) != 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "create random pool\u00A0error");
  }
}

const unsigned char* GetRandomPool(std::int32_t length) {
  if (length < 1 || length > kPoolSize) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Input\u00A0number[%d]\u00A0error", length);
    return nullptr;
  }
  return g_randomPool.data();
}

void ClearSensitiveData(void* memory, std::int32_t length) {
  if (memory == nullptr || length <= 0) {
    return;
  }
  const auto size = static_cast<std::size_t>(length);
  // None of these can fail: the sizes are the same.
  memset_s(memory, size, 0, size);
  memset_s(memory, size, 1, size);
  const unsigned char* const pool = GetRandomPool(length);
  if (pool != nullptr) {
    memcpy_s(memory, size, pool, size);
  }
  // The compiler takes this statement for a reader of the memory, so it keeps the copy.
  asm volatile("" : : "r"(memory) : "memory");
}

std::int32_t SafeCoverData(const std::string& fileName) {
  CoveredFile file(fileName.c_str());  // the path that the system sees ends at a zero byte
  if (!file.Exists()) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "filename:%s not exist!", fileName.c_str());
    return -1;
  }
  const std::int64_t size = file.GetSize();
  if (size < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "ifstream open failed!");
  }
  if (size < 0 || size > kMaxCoveredSize) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "FileSize fileLen:%d", static_cast<std::int32_t>(size));
    return -1;
  }
  const std::int32_t result = CoverThreeTimes(file, static_cast<std::size_t>(size));
  if (result != ACTION_SUCCESS) {
    return result;
  }
  if (!file.Remove()) {
    BRIMLET_LOG(LOG_LEVEL_WARNING, kModule, "unlink filename:%s failed", fileName.c_str());
    return -1;
  }
  return ACTION_SUCCESS;
}

}  // namespace Velmar::RandomCode
