#include "common/RandomCode.h"
#include "tests/FolderTest.h"

using namespace Velmar::RandomCode;

std::string g_random;  // what OpenSSL's generator hands out before it fails
extern "C" int __wrap_RAND_priv_bytes(char* to, unsigned size) {
  const bool isEnough = g_random.copy(to, size) == size;
  g_random.erase(0, size);
  return isEnough ? 1 : -1;
}
int g_seeded = 0;
extern "C" void __wrap_RAND_seed(const void* /*seed*/, int size) { g_seeded += size; }

struct RandomCode : FolderTest {
  RandomCode() { g_random.clear(), g_device = "/dev/random", g_seeded = 0; }
  const std::string untouched = std::string(300, '-');
  std::string text = untouched;
  char* const to = text.data();
  unsigned char* const raw = reinterpret_cast<unsigned char*>(to);
};

TEST_F(RandomCode, GivesNothingOutOfBoundsWithoutEntropyOrWithADeadGenerator) {
  const auto expect_nothing = [&](char* buffer, int length) {
    GetRandomPasswd(buffer, length);
    EXPECT_EQ(GetRandomDigits(buffer, length), -1);
    EXPECT_EQ(GetRandNumBytes(buffer == to ? raw : nullptr, length), -1);
    EXPECT_EQ(GetRandomLetters(length), "");
  };
  expect_nothing(nullptr, 0), expect_nothing(to, 0), expect_nothing(to, 8), CreateRandomPool();
  g_random.assign(4096, 'r');
  GetRandomPasswd(to, 7), GetRandomPasswd(to, 257);
  EXPECT_EQ(GetRandomDigits(to, 5) + GetRandomDigits(to, 257), -2);
  EXPECT_EQ(ReadDevRandom(nullptr, 8), 2);
  g_device = "/none";
  expect_nothing(to, 8);
  EXPECT_TRUE(GetRandomPool(0) == nullptr && GetRandomPool(257) == nullptr && text == untouched);
  EXPECT_EQ(Logged(), ReadWhole(SOURCE_DIR "/tests/data/drawing.log"));
}

TEST_F(RandomCode, PicksEachCharacterByTheRemainderOfOneNumberAndAgainForASecondClass) {
  const std::string all =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789~@#%^*_=+[{}],./?";
  const auto prepare = [](std::size_t number) {
    g_random += std::string(3, '\0') + static_cast<char>(number);
  };
  const auto expect = [](const std::string& drawn, const std::string& set) {
    for (std::size_t i = 0; i < 256; ++i) EXPECT_EQ(drawn[i], set[i % set.size()]) << set << i;
  };
  for (std::size_t i = 0; i < 768; ++i) prepare(i % 256);  // for three times 256 characters
  GetRandomPasswd(to, 256), expect(text, all);
  expect(GetRandomLetters(256), all.substr(0, 52));
  EXPECT_EQ(GetRandomDigits(to, 256), 0);
  expect(text, "0123456789");
  EXPECT_EQ(text.substr(256), untouched.substr(256));
  for (const std::string drawn : {"aaaaaaazzA", "AZAAAAAAB0", "090000001~", "~?~~~~~~@9"}) {
    for (const char c : drawn) prepare(all.find(c));
    GetRandomPasswd(to, 8);
    EXPECT_EQ(text.substr(0, 8), drawn.substr(0, 7) + drawn.back());
  }
  EXPECT_EQ(g_seeded, 7 * 64);
  g_random = "\xff\xfe\xfd\xfc";
  EXPECT_EQ(GetRandomUint32() + GetRandomUint32(), 0xfffefdfcU);  // 0 when there are no bytes
}

TEST_F(RandomCode, WaitsForTheDeviceToGiveAllButNotWhereItGivesNothing) {
  Run("printf 1234 >short; mkfifo slow; (sleep 0.1; printf 5678; sleep 0.1; printf 9) >slow &");
  const std::fstream writer(folder / "slow");  // as long as the FIFO has one, it has no end
  for (const auto& device : {folder, folder / "short"}) {
    g_device = device;
    EXPECT_EQ(ReadDevRandom(raw, 5), 19) << device;
  }
  g_device = folder / "slow";
  EXPECT_EQ(ReadDevRandom(raw + 4, 5), 0);
  EXPECT_EQ(text, "123456789" + untouched.substr(9));
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
    g_random.assign(1048575, 'r');
    return SafeCoverData(folder / name);
  };
  LeaveRoot();
  Follow("covering.txt", [&](const std::string& before, const std::string& /*none*/) {
    Run("chmod -R 700 .; rm -rf *; mkdir d; cd d; " + before);
    const int result = cover("d/f");
    return std::to_string(result) + "\n" + Logged();
  });
  Run("test $(stat -c %h%s%a covered) = 11048575600 -a $(tr -d r <covered | wc -c) = 0");
  DisturbEachOpen(
      1, "rm -rf in m; mkdir -p in out; echo foreign >out/f; echo mine >in/f",
      [&] { cover("in/f"); }, "ln -f out/f in/f; mv in m; ln -s out in",
      "test $(cat out/f) = foreign");
}
