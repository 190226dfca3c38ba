#include "common/RandomCode.h"

#include <poll.h>

#include "tests/FolderTest.h"

using namespace Velmar::RandomCode;

std::string g_random;  // what OpenSSL's generator hands out before it fails
std::string g_device;  // what reads and polls of /dev/random give; I, A and E are errors
int g_seeded = 0;
extern "C" int __wrap_RAND_priv_bytes(char* to, unsigned size) {
  const bool isEnough = g_random.copy(to, size) == size;
  g_random.erase(0, size);
  return isEnough ? 1 : -1;
}
extern "C" void __wrap_RAND_seed(const void* /*seed*/, int size) { g_seeded += size; }
extern "C" long __wrap_read(int /*fd*/, char* to, std::size_t size) {
  if (g_device.empty()) return static_cast<long>(size);
  const char step = g_device[0];
  g_device.erase(0, 1);
  errno = step == 'I' ? EINTR : step == 'A' ? EAGAIN : EIO;
  return step > '9' ? -1 : std::fill_n(to, step - '0', step) - to;
}
extern "C" int __wrap_poll(pollfd* /*fds*/, nfds_t /*count*/, int wait) {
  char ready[9];
  return wait > 0 && wait <= 10000 ? static_cast<int>(__wrap_read(0, ready, 1)) : 99;
}

struct RandomCode : FolderTest {
  RandomCode() { g_random.clear(), g_seeded = 0; }
  const std::string untouched = std::string(300, '-');
  std::string text = untouched;
  char* const to = text.data();
  unsigned char* const raw = reinterpret_cast<unsigned char*>(to);
};

TEST_F(RandomCode, GivesNothingOutOfBoundsWithoutEntropyOrWithADeadGenerator) {
  const std::string null = " input, error code: Null pointer\n", n = "E Input number[0] error\n",
                    no = "E Get random number failed.\n", seed = no + "E get random seed failed.\n",
                    open = "E Failed to open /dev/random, error code: Permission denied\n" + seed;
  const auto callAll = [&](char* buffer, int length) {
    GetRandomPasswd(buffer, length);
    EXPECT_EQ(GetRandomDigits(buffer, length), -1);
    EXPECT_EQ(GetRandNumBytes(buffer == to ? raw : nullptr, length), -1);
    EXPECT_EQ(GetRandomLetters(length), "");
  };
  callAll(nullptr, 0), callAll(to, 0), callAll(to, 8);
  g_hook = [] { return EACCES; };
  callAll(to, 8);
  g_hook = [] { return 0; };
  EXPECT_EQ(Logged(), "E null buf" + null + "E null buf" + null + "E null data" + null + n +
                          "E Input passwd length error, len = 0\n" + n + n + n + no + no +
                          "E GetRandNumBytes RAND_bytes failed\n" + no + open + open + open + open);
  g_random.assign(4096, 'r');
  GetRandomPasswd(to, 7), GetRandomPasswd(to, 257);
  EXPECT_EQ(GetRandomDigits(to, 5) + GetRandomDigits(to, 257) + ReadDevRandom(nullptr, 8), 0);
  EXPECT_TRUE(GetRandomPool(0) == nullptr && GetRandomPool(257) == nullptr && text == untouched);
}

TEST_F(RandomCode, PicksEachCharacterByTheRemainderOfOneNumberAndAgainForASecondClass) {
  const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ",
                    all = letters + "0123456789~@#%^*_=+[{}],./?";
  const auto expect = [&](const std::string& set, auto generate) {
    std::string expected = untouched;
    for (std::uint32_t i = 0, number = 1; i < 256; ++i, number *= 2654435769U) {
      for (const int shift : {24, 16, 8, 0}) g_random += static_cast<char>(number >> shift);
      expected[i] = set[number % set.size()];
    }
    generate(to, 256);
    EXPECT_EQ(text, expected);
  };
  g_random = "\xff\xfe\xfd\xfc";
  EXPECT_EQ(GetRandomUint32() + GetRandomUint32(), 0xfffefdfcU);  // 0 when there are no bytes
  expect("0123456789", GetRandomDigits);
  expect(all, GetRandomPasswd);
  expect(letters, [](char* at, int size) { GetRandomLetters(size).copy(at, 300); });
  for (const std::string drawn : {"aaaaaaazzA", "AZAAAAAAB0", "090000001~", "~?~~~~~~@9"}) {
    for (const char c : drawn) g_random += std::string(3, '\0') + static_cast<char>(all.find(c));
    GetRandomPasswd(to, 8);
    EXPECT_EQ(text.substr(0, 8), drawn.substr(0, 7) + drawn.back());
  }
  EXPECT_EQ(g_seeded, 7 * 64);
}

TEST_F(RandomCode, ReadsTheDeviceUntilItFailsNineTimesInARowOrGivesNothingForTooLong) {
  for (const std::string steps :
       {"IIIIIIIIII35", "00000000100000EEE7", "A1AI8", "0000I0E0E0", "A0", "AE"}) {
    const bool fails = steps.ends_with('0') || steps.ends_with('E');
    g_device = steps;
    EXPECT_EQ(ReadDevRandom(raw, 8), fails ? 19 : 0) << steps;
    EXPECT_EQ(g_device, "") << steps;
  }
}

TEST_F(RandomCode, WipesMemoryWithThePoolAndWithOnesWhatIsLarger) {
  g_random.assign(256, 'r');
  CreateRandomPool(), ClearSensitiveData(to, 256), ClearSensitiveData(nullptr, 8);
  EXPECT_EQ(text, std::string(256, 'r') + untouched.substr(256));
  for (const int length : {0, -1, 300}) ClearSensitiveData(to, length);
  EXPECT_EQ(text, std::string(300, '\1'));
}

TEST_F(RandomCode, CoversARegularFileOfUpToAMebibyteAndNothingElseWhateverNamesAreSwapped) {
  const auto cover = [&](const std::string& name) {
    g_random.assign(1048576, 'r');
    const int result = SafeCoverData(folder / name);
    return std::to_string(result) + Logged();
  };
  Run("truncate -s 1048576 f; ln f g; mkdir d; ln -s g l; mkfifo p; truncate -s 1048577 o; >e");
  EXPECT_EQ(cover("f") + cover("o"), "0-1W FileSize fileLen:1048577\n");
  EXPECT_EQ(cover("e"), "105E SafeCoverData WriteToFile failed ret:105\n");
  Run("test ! -e f -a $(stat -c %s%a g) = 1048576600 -a $(tr -d r <g | wc -c) = 0");
  for (const std::string name : {"", "f", "d", "l", "l/", "p", "g/"})
    EXPECT_EQ(cover(name), "-1W filename:" + name + " not exist!\n");
  std::string failures;
  for (int at = 0; at < 5; ++at) {
    g_hook = [call = at]() mutable { return call-- == 0 ? EACCES : 0; };
    failures += cover("g").substr(0, 12) + "|";
  }
  EXPECT_EQ(failures, "-1W filename|-1E ifstream|105E SafeCov|-1E Failed t|-1W unlink f|");
  DisturbEachCall(
      1, "rm -rf in m; mkdir -p in out; echo foreign >out/f; echo mine >in/f",
      [&] { cover("in/f"); }, "ln -f out/f in/f; mv in m; ln -s out in",
      "test $(cat out/f) = foreign");
}
