// The bounds-checked functions against plain models of them. Every buffer is exactly as large as
// the function is told, so that AddressSanitizer sees each byte read or written beyond it.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/BoundsChecked.h"
#include "fuzz/Require.h"

namespace {

using BrimletFuzz::Require;

constexpr std::size_t kMaxSize = 80;

// A block of memory that is never null and has no byte to spare.
struct Buffer {
  explicit Buffer(const std::string& content)
      : before(content), size(content.size()), data(new char[size]) {
    std::copy(content.begin(), content.end(), data.get());
  }

  // A function has put its bytes at their place, or, where they do not fit, nothing and said so.
  void RequireCopied(int result, bool fits, std::size_t at, const std::string& bytes) const {
    std::string expected = before;
    if (fits) {
      expected.replace(at, bytes.size(), bytes);
    }
    Require(result == (fits ? 0 : ERANGE), "a function tells whether it has copied");
    Require(std::string(data.get(), size) == expected, "a function copies all or nothing");
  }

  const std::string before;
  const std::size_t size;
  const std::unique_ptr<char[]> data;
};

std::size_t PickSize(FuzzedDataProvider& input, std::size_t max) {
  return input.ConsumeIntegralInRange<std::size_t>(0, max);
}

std::size_t PickCount(FuzzedDataProvider& input) {
  return PickSize(input, 7) == 0 ? input.ConsumeIntegral<std::size_t>() : PickSize(input, kMaxSize);
}

std::string PickText(FuzzedDataProvider& input) {
  const std::string bytes = input.ConsumeRandomLengthString(kMaxSize);
  return bytes.substr(0, bytes.find('\0'));
}

void CheckMemcpy(FuzzedDataProvider& input, const Buffer& dest) {
  const std::size_t count = PickCount(input);
  std::string bytes = input.ConsumeRemainingBytesAsString();
  bytes.resize(std::min(count, kMaxSize), '+');
  const Buffer source(bytes);
  const int result = Velmar::memcpy_s(dest.data.get(), dest.size, source.data.get(), count);
  dest.RequireCopied(result, count <= dest.size, 0, bytes);
}

void CheckOverlap(FuzzedDataProvider& input, const Buffer& dest) {
  const std::size_t from = PickSize(input, dest.size);
  const std::size_t to = PickSize(input, dest.size);
  const std::size_t count = PickSize(input, dest.size - std::max(from, to));
  char* const data = dest.data.get();
  const int result = Velmar::memcpy_s(data + to, dest.size - to, data + from, count);
  dest.RequireCopied(result, true, to, dest.before.substr(from, count));
}

void CheckMemset(FuzzedDataProvider& input, const Buffer& dest) {
  const std::size_t count = PickCount(input);
  const int value = input.ConsumeIntegral<int>();
  const std::string bytes(std::min(count, kMaxSize), static_cast<char>(value));
  const int result = Velmar::memset_s(dest.data.get(), dest.size, value, count);
  dest.RequireCopied(result, count <= dest.size, 0, bytes);
}

void CheckStrcat(FuzzedDataProvider& input, const Buffer& dest) {
  const std::string tail = PickText(input) + '\0';
  const Buffer source(tail);
  const std::size_t used = std::min(dest.before.find('\0'), dest.size);
  const int result = Velmar::strcat_s(dest.data.get(), dest.size, source.data.get());
  dest.RequireCopied(result, tail.size() <= dest.size - used, used, tail);
}

void CheckSnprintf(FuzzedDataProvider& input, const Buffer& dest) {
  const std::size_t count = PickCount(input);
  const int number = input.ConsumeIntegral<int>();
  const std::string word = PickText(input);
  const std::string text = word + "|" + std::to_string(number) + "%";
  const bool fits = text.size() <= count && text.size() < dest.size;
  const int result =
      Velmar::snprintf_s(dest.data.get(), dest.size, count, "%s|%d%%", word.c_str(), number);
  Require(result == (fits ? static_cast<int>(text.size()) : -1), "snprintf_s tells the length");
  Require(dest.size == 0 || dest.data.get() == (fits ? text : ""), "snprintf_s: all or nothing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto check =
      input.PickValueInArray({CheckMemcpy, CheckOverlap, CheckMemset, CheckStrcat, CheckSnprintf});
  std::string content = input.ConsumeRandomLengthString(kMaxSize);
  content.resize(PickSize(input, kMaxSize), '#');
  check(input, Buffer(content));
  return 0;
}
