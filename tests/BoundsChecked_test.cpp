#include "common/BoundsChecked.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

namespace BrimletTest {
namespace {

using namespace Velmar;

// Eight bytes of which the functions are told `destMax`; whatever they do, the rest must stay.
struct Buffer {
  std::array<char, 8> bytes{'a', 'b', '\0', 'd', 'e', 'f', 'g', 'h'};
  std::string All() const { return {bytes.begin(), bytes.end()}; }
};
const std::string kUntouched("ab\0defgh", 8);

TEST(BoundsChecked, CopiesAndSetsWithinTheBoundOrTouchesNothing) {
  const struct {
    std::size_t destMax, count;
    int result;
    std::string copied, set;
  } cases[] = {
      {8, 0, 0, kUntouched, kUntouched},      {8, 3, 0, "XYZdefgh", "___defgh"},
      {3, 3, 0, "XYZdefgh", "___defgh"},      {2, 3, ERANGE, kUntouched, kUntouched},
      {0, 1, ERANGE, kUntouched, kUntouched}, {0, 0, 0, kUntouched, kUntouched},
  };
  for (const auto& c : cases) {
    Buffer copied;
    Buffer set;
    EXPECT_EQ(memcpy_s(copied.bytes.data(), c.destMax, "XYZ", c.count), c.result);
    EXPECT_EQ(memset_s(set.bytes.data(), c.destMax, 0x100 + '_', c.count), c.result);
    EXPECT_EQ(copied.All(), c.copied) << c.count << " of " << c.destMax;
    EXPECT_EQ(set.All(), c.set) << c.count << " of " << c.destMax;
  }
  Buffer overlapping;
  EXPECT_EQ(memcpy_s(&overlapping.bytes[1], 7, overlapping.bytes.data(), 7), 0);
  EXPECT_EQ(overlapping.All(), std::string("aab\0defg", 8));
}

TEST(BoundsChecked, AppendsATextThatFitsWithItsTerminator) {
  const struct {
    std::size_t destMax;
    const char* src;
    int result;
    std::string all;
  } cases[] = {
      {8, "", 0, kUntouched},
      {8, "XY", 0, std::string("abXY\0fgh", 8)},
      {5, "XY", 0, std::string("abXY\0fgh", 8)},
      {4, "XY", ERANGE, kUntouched},
      {2, "", ERANGE, kUntouched},
      {0, "", ERANGE, kUntouched},
  };
  for (const auto& c : cases) {
    Buffer buffer;
    EXPECT_EQ(strcat_s(buffer.bytes.data(), c.destMax, c.src), c.result) << c.src;
    EXPECT_EQ(buffer.All(), c.all) << c.src << " in " << c.destMax;
  }
}

TEST(BoundsChecked, FormatsATextThatFitsOrLeavesTheEmptyText) {
  const struct {
    std::size_t destMax, count;
    int result;
    std::string all;
  } cases[] = {
      {8, 7, 4, std::string("=123\0fgh", 8)},
      {5, 4, 4, std::string("=123\0fgh", 8)},
      {5, 7, 4, std::string("=123\0fgh", 8)},
      {8, 3, -1, std::string(1, '\0')},
      {4, 7, -1, std::string(1, '\0')},
      {1, 1, -1, std::string(1, '\0')},
      {0, 7, -1, kUntouched},
  };
  for (const auto& c : cases) {
    Buffer buffer;
    EXPECT_EQ(snprintf_s(buffer.bytes.data(), c.destMax, c.count, "=%d", 123), c.result);
    EXPECT_EQ(buffer.All().substr(0, c.all.size()), c.all) << c.count << " of " << c.destMax;
    EXPECT_EQ(buffer.All().substr(5), "fgh") << c.count << " of " << c.destMax;
  }
}

TEST(BoundsChecked, RefusesNullPointers) {
  char c = 'c';
  EXPECT_EQ(Velmar::memcpy_s(nullptr, 1, &c, 1), EINVAL);
  EXPECT_EQ(Velmar::memcpy_s(&c, 1, nullptr, 1), EINVAL);
  EXPECT_EQ(Velmar::memset_s(nullptr, 1, 0, 1), EINVAL);
  EXPECT_EQ(Velmar::strcat_s(nullptr, 1, ""), EINVAL);
  EXPECT_EQ(Velmar::strcat_s(&c, 1, nullptr), EINVAL);
  EXPECT_EQ(Velmar::snprintf_s(nullptr, 1, 0, "%s", ""), -1);
  EXPECT_EQ(c, 'c');
}

}  // namespace
}  // namespace BrimletTest
