// A message comes into the log as one line of the known layout, or not at all.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "common/Logger.h"
#include "fuzz/Require.h"
#include "tests/Support.h"

namespace {

using BrimletFuzz::Require;
using Velmar::Logger;

constexpr std::size_t kMaxMessage = 4095;
constexpr std::size_t kTimeSize = 26;
constexpr int kPadding = 4200;
constexpr std::size_t kMaxName = 300;

// The log of the process, as long as it runs.
struct OpenLog {
  OpenLog() { Velmar::Singleton<Logger>::Instance()->Init(path); }

  BrimletTest::TempFolder folder;
  std::string path = folder / "fuzz.log";
};

struct Call {
  int level, line;
  std::string file, module, message;
};

std::string UpToZero(const std::string& bytes) { return bytes.substr(0, bytes.find('\0')); }

std::string PickMessage(FuzzedDataProvider& input) {
  const auto padding = input.ConsumeBool() ? input.ConsumeIntegralInRange(0, kPadding) : 0;
  return std::string(static_cast<std::size_t>(padding), 'm') +
         UpToZero(input.ConsumeRemainingBytesAsString());
}

void Write(const Call& call, bool isByPointers) {
  static const std::string format = "%s";
  auto& logger = *Velmar::Singleton<Logger>::Instance();
  const char* const message = call.message.c_str();
  if (isByPointers) {
    logger.Write(call.level, call.file.c_str(), call.line, call.module.c_str(), "%s", message);
  } else {
    logger.Write(call.level, call.file, call.line, call.module, format, message);
  }
}

bool BeginsWithTime(const std::string& text) {
  static constexpr std::string_view layout = "[dd-dd-dd dd:dd:dd.dddddd]";
  static_assert(layout.size() == kTimeSize);
  return text.size() > kTimeSize &&
         std::equal(layout.begin(), layout.end(), text.begin(), [](char form, char c) {
           return form == 'd' ? c >= '0' && c <= '9' : c == form;
         });
}

std::string LineBehindTime(const Call& call) {
  static const std::array<const char*, 6> names = {"", "", "INFO", "WARNING", "ERROR", "CRITICAL"};
  const bool isNamed = call.level < static_cast<int>(names.size());
  const std::string level = isNamed ? names.at(static_cast<std::size_t>(call.level)) : " ";
  return " [" + level + "] [" + call.file + ":" + std::to_string(call.line) + "] " + call.module +
         ": " + call.message + "\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const OpenLog log;
  FuzzedDataProvider input(data, size);
  const bool isByPointers = input.ConsumeBool();
  const Call call{
      input.ConsumeIntegral<std::int8_t>(),
      input.ConsumeIntegral<int>(),
      UpToZero(input.ConsumeRandomLengthString(kMaxName)),
      UpToZero(input.ConsumeRandomLengthString(kMaxName)),
      PickMessage(input),
  };
  Write(call, isByPointers);
  const std::string written = BrimletTest::ReadWhole(log.path);
  std::filesystem::resize_file(log.path, 0);
  if (call.level < 2 || call.message.size() > kMaxMessage) {
    Require(written.empty(), "a dropped message leaves nothing");
    return 0;
  }
  Require(BeginsWithTime(written), "a line begins with the time");
  Require(written.substr(kTimeSize) == LineBehindTime(call), "a line has the layout");
  return 0;
}
