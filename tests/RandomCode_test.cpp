#include "common/RandomCode.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#define OPENSSL_SUPPRESS_DEPRECATED  // the short way to a generator of our own
#include <openssl/rand.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string_view>
#include <thread>
#include <utility>

#include "common/UniqueFd.h"
#include "tests/Support.h"

namespace BrimletTest {
namespace {

namespace fs = std::filesystem;
using namespace Velmar::RandomCode;
using Draw = std::function<bool(unsigned char*, int)>;

constexpr std::string_view kPasswordSet =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789~@#%^*_=+[{}],./?";
const char* const kNullBuffer = "null buf input, error code: Null pointer";
const char* const kNullData = "null data input, error code: Null pointer";
const char* const kNoDevice = "Failed to open /dev/random, error code: Too many open files";
const char* const kNoNumber = "Get random number failed.";
const char* const kNoSeed = "get random seed failed.";
const char* const kNoPool = "create random pool\u00A0error";
const char* const kNothingRead = "get random number failed, out of try times.";

Lines Logged(Lines messages, const std::string& level = "ERROR") {
  for (std::string& message : messages) {
    message.insert(0, "[" + level + "] [RandomCode] UTILS: ");
  }
  return messages;
}

std::string Untouched(std::size_t size = 300) { return std::string().append(size, '-'); }
unsigned char* Bytes(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

// Takes the place of OpenSSL's generator as long as it lives.
struct FakeGenerator {
  explicit FakeGenerator(Draw draw) {
    sDraw = std::move(draw);
    sSeeds.clear();
    static RAND_METHOD method{};
    method.seed = [](const void* /*seed*/, int size) { return sSeeds.push_back(size), 1; };
    method.bytes = [](unsigned char* to, int size) { return sDraw(to, size) ? 1 : 0; };
    RAND_set_rand_method(&method);
  }
  ~FakeGenerator() { RAND_set_rand_method(RAND_OpenSSL()); }

  inline static Draw sDraw;
  inline static std::vector<int> sSeeds;  // their sizes
};

// Hands out these numbers, most significant byte first, and then fails.
Draw Numbers(std::vector<uint32_t> numbers) {
  return [numbers = std::move(numbers), used = std::size_t{0}](auto* to, int size) mutable {
    const std::size_t end = used + static_cast<std::size_t>(size);
    for (; used < end && end <= numbers.size() * 4; ++used) {
      *to++ = static_cast<unsigned char>(numbers[used / 4] >> (24 - used % 4 * 8));
    }
    return used == end;
  };
}

// Leaves the process exactly `left` descriptors to open as long as it lives.
struct FewDescriptors {
  explicit FewDescriptors(int left) {
    getrlimit(RLIMIT_NOFILE, &old);
    rlimit few = {0, old.rlim_max};
    for (; left > 0; ++few.rlim_cur) {
      left -= fcntl(static_cast<int>(few.rlim_cur), F_GETFD) < 0 ? 1 : 0;
    }
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &old); }
  rlimit old{};
};

// Runs a part of a test in a process of its own.
void InChild(const std::function<void()>& body) {
  const auto run = [&] {
    body();
    std::fflush(nullptr);
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(RandomCode, RefusesWhatIsOutOfBoundsAndTouchesNothing) {
  LogCapture log;
  std::string text = Untouched();
  char* const to = text.data();
  unsigned char* const raw = Bytes(text);
  const struct {
    std::function<bool()> isRefused;
    std::string message;
  } cases[] = {
      {[&] { return ReadDevRandom(raw, 0) + ReadDevRandom(raw, -1) == 0; }, ""},
      {[&] { return ClearSensitiveData(to, 0), ClearSensitiveData(to, -1), true; }, ""},
      {[] { return ClearSensitiveData(nullptr, 8), true; }, ""},
      {[] { return ReadDevRandom(nullptr, 8) == 2; }, kNullBuffer},
      {[] { return GetRandomPasswd(nullptr, 7), true; }, kNullBuffer},
      {[] { return GetRandomDigits(nullptr, 5) == -1; }, kNullBuffer},
      {[] { return GetRandNumBytes(nullptr, 0) == -1; }, kNullData},
      {[&] { return GetRandNumBytes(raw, 0) == -1; }, "Input number[0] error"},
      {[&] { return GetRandNumBytes(raw, -5) == -1; }, "Input number[-5] error"},
      {[&] { return GetRandomPasswd(to, 7), true; }, "Input passwd length error, len = 7"},
      {[&] { return GetRandomPasswd(to, 257), true; }, "Input passwd length error, len = 257"},
      {[&] { return GetRandomDigits(to, 5) == -1; }, "Input number[5] error"},
      {[&] { return GetRandomDigits(to, 257) == -1; }, "Input number[257] error"},
      {[] { return GetRandomLetters(5).empty(); }, "Input number[5] error"},
      {[] { return GetRandomLetters(257).empty(); }, "Input number[257] error"},
      {[] { return GetRandomPool(0) == nullptr; }, "Input\u00A0number[0]\u00A0error"},
      {[] { return GetRandomPool(257) == nullptr; }, "Input\u00A0number[257]\u00A0error"},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(c.isRefused()) << &c - cases;
    EXPECT_EQ(log.Take(), Logged(c.message.empty() ? Lines{} : Lines{c.message})) << &c - cases;
    EXPECT_EQ(text, Untouched()) << &c - cases;
  }
}

TEST(RandomCode, ReseedsOnceAndPicksEachCharacterByTheRemainderOfOneNumber) {
  std::vector<uint32_t> numbers = {0xFFFFFFFF, 0x80000000, 0x01020304};
  while (numbers.size() < 256) {
    numbers.push_back(numbers.back() * 2654435761U + 1);
  }
  const struct {
    std::string_view set;
    int minLength;
    void (*generate)(char*, int);
  } cases[] = {
      {kPasswordSet, 8, GetRandomPasswd},
      {kPasswordSet.substr(52, 10), 6,
       [](char* to, int n) { EXPECT_EQ(GetRandomDigits(to, n), 0); }},
      {kPasswordSet.substr(0, 52), 6, [](char* to, int n) { GetRandomLetters(n).copy(to, 300); }},
  };
  for (const auto& c : cases) {
    for (const int length : {c.minLength, 256}) {
      const FakeGenerator generator{Numbers(numbers)};
      std::string expected = Untouched();
      std::transform(numbers.begin(), numbers.begin() + length, expected.begin(),
                     [&](uint32_t number) { return c.set[number % c.set.size()]; });
      std::string text = Untouched();
      c.generate(text.data(), length);
      EXPECT_EQ(text, expected);
      EXPECT_EQ(FakeGenerator::sSeeds, std::vector<int>{64});
    }
  }
  const FakeGenerator generator{Numbers(numbers)};
  EXPECT_EQ(GetRandomUint32(), 0xFFFFFFFF);
  EXPECT_EQ(GetRandomUint32(), 0x80000000);
  EXPECT_TRUE(FakeGenerator::sSeeds.empty());
}

TEST(RandomCode, DrawsTheLastCharacterAgainUntilThereIsASecondClass) {
  LogCapture log;
  const struct {
    std::vector<uint32_t> numbers;
    const char* password;
    Lines messages;
  } cases[] = {
      {{0, 1, 2, 3, 4, 5, 6, 7, 25, 0, 79, 26}, "abcdefgA", {}},
      {{26, 51, 26, 26, 26, 26, 26, 26, 27, 52}, "AZAAAAA0", {}},
      {{52, 61, 52, 52, 52, 52, 52, 52, 53, 62}, "0900000~", {}},
      {{62, 78, 62, 62, 62, 62, 62, 62, 63, 61}, "~?~~~~~9", {}},
      {{0, 0, 0, 0, 0, 0, 26, 0}, "aaaaaaAa", {}},
      {{0, 1, 2, 3, 4, 5, 6, 7, 8}, "--------", {kNoNumber}},
      {std::vector<uint32_t>(1000), "--------", {kNoNumber}},  // stuck for good
  };
  for (const auto& c : cases) {
    const FakeGenerator generator(Numbers(c.numbers));
    std::string password = Untouched(8);
    GetRandomPasswd(password.data(), 8);
    EXPECT_EQ(password, c.password);
    EXPECT_EQ(log.Take(), Logged(c.messages)) << c.password;
  }
}

TEST(RandomCode, HandsOutNothingWithoutEntropyOrWithADeadGenerator) {
  LogCapture log;
  const auto callAll = [] {
    std::string text = Untouched();
    GetRandomPasswd(text.data(), 8);
    EXPECT_EQ(GetRandomDigits(text.data(), 6), -1);
    EXPECT_EQ(GetRandomLetters(6), "");
    EXPECT_EQ(GetRandNumBytes(Bytes(text), 300), -1);
    CreateRandomPool();
    EXPECT_EQ(text, Untouched());
  };
  {
    const FewDescriptors none(0);
    callAll();
    unsigned char byte = 0;
    EXPECT_EQ(ReadDevRandom(&byte, 0), 19);
  }
  EXPECT_EQ(log.Take(), Logged({kNoDevice, kNoNumber, kNoSeed, kNoDevice, kNoNumber, kNoSeed,
                                kNoDevice, kNoNumber, kNoSeed, kNoDevice, kNoNumber, kNoSeed,
                                kNoDevice, kNoNumber, kNoSeed, kNoPool, kNoDevice}));
  const FakeGenerator dead(Numbers({}));
  callAll();
  EXPECT_EQ(GetRandomUint32(), 0U);
  const char* const noBytes = "GetRandNumBytes RAND_bytes failed";
  EXPECT_EQ(log.Take(), Logged({kNoNumber, kNoNumber, kNoNumber, noBytes, noBytes, kNoPool}));
}

TEST(RandomCode, GivesBytesOfAllValuesAboutEquallyOften) {
  std::string bytes(65536, '\0');
  ASSERT_EQ(GetRandNumBytes(Bytes(bytes), 65536), 0);
  for (int value = 0; value < 256; ++value) {
    // Eight standard deviations around 256: a sound generator fails once in 10^10 runs.
    const auto count = std::count(bytes.begin(), bytes.end(), static_cast<char>(value));
    EXPECT_TRUE(count > 128 && count < 384) << value << ": " << count;
  }
}

// Gives the process mounts of its own, as an ordinary user too, and puts a file over /dev/random.
void ReplaceDevRandom(const std::string& file) {
  const std::string uid = std::to_string(geteuid());
  const std::string gid = std::to_string(getegid());
  if (unshare(CLONE_NEWNS) != 0) {
    ASSERT_EQ(unshare(CLONE_NEWUSER | CLONE_NEWNS), 0);
    WriteWhole("/proc/self/uid_map", "0 " + uid + " 1");
    WriteWhole("/proc/self/setgroups", "deny");
    WriteWhole("/proc/self/gid_map", "0 " + gid + " 1");
  }
  ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
  ASSERT_EQ(mount(file.c_str(), "/dev/random", nullptr, MS_BIND, nullptr), 0);
}

void ReadFromASlowDevice(const std::string& fifo) {
  ASSERT_NO_FATAL_FAILURE(ReplaceDevRandom(fifo));
  LogCapture log;
  std::string text = Untouched(8);
  EXPECT_EQ(ReadDevRandom(Bytes(text), 8), 19);  // a FIFO without a writer reads as ended
  EXPECT_EQ(log.Take(), Logged({kNothingRead}));
  const Velmar::UniqueFd writer(open(fifo.c_str(), O_RDWR | O_CLOEXEC));
  std::thread kernel([&] {
    for (const char* const piece : {"0123", "4567"}) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      EXPECT_EQ(write(writer.Get(), piece, 4), 4);
    }
  });
  EXPECT_EQ(ReadDevRandom(Bytes(text), 8), 0);
  kernel.join();
  EXPECT_EQ(text, "01234567");
  EXPECT_EQ(log.Take(), Lines{});
  EXPECT_EQ(ReadDevRandom(Bytes(text), 8), 19);  // nothing comes any more
  EXPECT_EQ(log.Take(), Logged({kNothingRead}));
}

TEST(RandomCode, WaitsForTheKernelWithinBoundsAndGivesUpWhenNothingComes) {
  const TempFolder folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  InChild([&] { ReadFromASlowDevice(folder / "fifo"); });
}

void WipeWithoutAndWithAPool() {
  LogCapture log;
  const auto wiped = [](int length) {
    std::string text = Untouched();
    ClearSensitiveData(text.data(), length);
    return text;
  };
  const auto pool = [](std::size_t length) {
    return std::string(reinterpret_cast<const char*>(GetRandomPool(256)), length);
  };
  EXPECT_EQ(pool(256), std::string(256, '\0'));
  EXPECT_EQ(wiped(16), std::string(16, '\0') + Untouched(284));
  CreateRandomPool();
  EXPECT_NE(pool(256), std::string(256, '\0'));
  EXPECT_EQ(wiped(1), pool(1) + Untouched(299));
  EXPECT_EQ(wiped(256), pool(256) + Untouched(44));
  EXPECT_EQ(log.Take(), Lines{});
  EXPECT_EQ(wiped(300), std::string(300, '\x01'));
  EXPECT_EQ(log.Take(), Logged({"Input\u00A0number[300]\u00A0error"}));
}

TEST(RandomCode, WipesMemoryWithZerosAsLongAsThereIsNoPoolAndWithThePoolThen) {
  InChild(WipeWithoutAndWithAPool);
}

void ExpectWipe(LogCapture& log, const std::string& path, int result, const Lines& lines) {
  EXPECT_EQ(SafeCoverData(path), result) << path;
  EXPECT_EQ(log.Take(), lines) << path;
}

TEST(RandomCode, OverwritesAFileUnderAllItsNamesAndRemovesTheOneGiven) {
  LogCapture log;
  const TempFolder folder;
  const FakeGenerator generator(
      [](auto* to, int size) { return std::fill_n(to, size, 'r'), true; });
  WriteWhole(folder / "file", "");
  fs::permissions(folder / "file", fs::perms(0644));
  for (const std::size_t size : {1U, 5000U, 1048576U}) {
    WriteWhole(folder / "file", std::string(size, 's'));
    fs::create_hard_link(folder / "file", folder / "second");
    ExpectWipe(log, folder / "file", 0, {});
    EXPECT_EQ(ModeOf(folder / "file"), 0U) << size;
    EXPECT_EQ(ModeOf(folder / "second"), S_IFREG | 0600U) << size;
    EXPECT_TRUE(ReadWhole(folder / "second") == std::string(size, 'r')) << size;
    fs::rename(folder / "second", folder / "file");
  }
}

TEST(RandomCode, LeavesWhatIsNoSmallRegularFileAlone) {
  LogCapture log;
  const TempFolder folder;
  const std::string file = folder / "file";
  WriteWhole(file, "");
  ExpectWipe(log, file, 105, Logged({"SafeCoverData WriteToFile failed ret:105"}));
  WriteWhole(file, "precious");
  fs::create_directory(folder / "dir");
  fs::create_symlink("file", folder / "link");
  fs::create_symlink("nowhere", folder / "dangling");
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  for (const char* const name :
       {"", "none", "dir", "dir/", "link", "link/", "dangling", "fifo", "file/", "none/file"}) {
    const std::string path = folder / name;
    const unsigned mode = ModeOf(path);
    ExpectWipe(log, path, -1, Logged({"filename:" + path + " not exist!"}, "WARNING"));
    EXPECT_EQ(ModeOf(path), mode) << name;
  }
  EXPECT_EQ(ReadWhole(file), "precious");
  const std::pair<off_t, const char*> tooLarge[] = {
      {1048577, "1048577"}, {off_t{3} << 30, "-1073741824"}, {(off_t{4} << 30) + 10, "10"}};
  for (const auto& [size, text] : tooLarge) {
    fs::resize_file(file, static_cast<std::uintmax_t>(size));
    ExpectWipe(log, file, -1, Logged({std::string("FileSize fileLen:") + text}, "WARNING"));
    fs::resize_file(file, 8);
    EXPECT_EQ(ReadWhole(file), "precious");
  }
}

TEST(RandomCode, StopsTheWipingOfAFileAtTheFirstFailure) {
  LogCapture log;
  const TempFolder folder;
  const std::string path = folder / "secret";
  Lines unreadable = Logged({"ifstream open failed!"});
  unreadable.push_back(Logged({"FileSize fileLen:-1"}, "WARNING")[0]);
  const struct {
    int result;
    const char* content;
    Lines lines;
  } cases[] = {
      // Each case has one descriptor more: for the folder, reading, writing, the seed device.
      {-1, "ssss", Logged({"filename:" + path + " not exist!"}, "WARNING")},
      {-1, "ssss", unreadable},
      {105, "ssss", Logged({"SafeCoverData WriteToFile failed ret:105"})},
      {-1, "\1\1\1\1",
       Logged({kNoDevice, kNoNumber, kNoSeed,
               "SafeCoverDataRandom GetAuthentRandomNum failed ret:-1"})},
      {0, "<unreadable>", {}},
  };
  for (int descriptors = 0; const auto& c : cases) {
    WriteWhole(path, "ssss");
    {
      const FewDescriptors few(descriptors++);
      EXPECT_EQ(SafeCoverData(path), c.result);
    }
    EXPECT_EQ(log.Take(), c.lines);
    EXPECT_EQ(ReadWhole(path), c.content);
  }
}

TEST(RandomCode, WipesNoOtherFileWhenNamesAreExchangedMeanwhile) {
  LogCapture log;
  const TempFolder folder;
  const std::string path = folder / "dir/secret";
  const Lines moved = Logged({"SafeCoverDataRandom WriteToFile failed ret:102"});
  const struct {
    int result;
    Lines lines;
    std::function<void()> exchange;  // between the second pass and the third
  } cases[] = {
      {102, moved, [&] { fs::remove(path), fs::create_symlink(folder / "foreign/secret", path); }},
      {102, moved, [&] { fs::rename(folder / "other", path); }},
      {0,
       {},
       [&] {
         fs::rename(folder / "dir", folder / "moved");
         fs::create_symlink(folder / "foreign", folder / "dir");
       }},
  };
  fs::create_directory(folder / "foreign");
  WriteWhole(folder / "foreign/secret", "precious");
  WriteWhole(folder / "other", "precious");
  for (const auto& c : cases) {
    fs::remove_all(folder / "dir");
    fs::create_directory(folder / "dir");
    WriteWhole(path, "ssss");
    const FakeGenerator generator([&](auto*, int) { return c.exchange(), true; });
    ExpectWipe(log, path, c.result, c.lines);
    EXPECT_EQ(ReadWhole(path), "precious");  // what it leads to by now
    EXPECT_EQ(ReadWhole(folder / "foreign/secret"), "precious");
  }
  EXPECT_EQ(ModeOf(folder / "moved/secret"), 0U);
}

}  // namespace
}  // namespace BrimletTest
