#include "verifycmds/verifycmds.h"

#include <array>
#include <tuple>

#include "common/LogStatement.h"
#include "utils/Validators.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";

constexpr std::string_view kExit = "--exit";
constexpr std::string_view kDaemonName = "brimletd";
constexpr std::string_view kInterfaceName = "orvix0";

constexpr std::size_t kMaxPidLength = 12;
// The 5 GHz channel numbers of Wi-Fi.
constexpr int kMinChannel = 36;
constexpr int kMaxChannel = 177;
constexpr int kMaxPort = 65535;
constexpr int kMaxUnblockIndex = 99;

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The white space of the classic locale.
constexpr bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Whether a word is a decimal number from `min`, which is not negative, to `max`, which is less
// than a tenth of the largest int. It is read as std::stoi does: leading white space and one sign
// are accepted, any number of leading zeros counts for nothing, and whatever follows the digits is
// ignored.
bool IsNumberInRange(std::string_view word, int min, int max) {
  std::size_t i = 0;
  while (i < word.size() && IsSpace(word[i])) {
    ++i;
  }
  bool isNegative = false;
  if (i < word.size() && (word[i] == '+' || word[i] == '-')) {
    isNegative = word[i] == '-';
    ++i;
  }
  if (i == word.size() || !IsDigit(word[i])) {
    return false;
  }
  int value = 0;
  for (; i < word.size() && IsDigit(word[i]); ++i) {
    value = value * 10 + (word[i] - '0');
    if (value > max) {
      return false;
    }
  }
  return (isNegative ? -value : value) >= min;
}

}  // namespace

// Goes through the table in an unrolled loop that is inlined, so that it compares with constants.
[[gnu::flatten]] VerifyCmds::CmdChecker VerifyCmds::FindChecker(std::string_view option) {
  struct Entry {
    std::string_view option;
    CmdChecker checker;
  };
  static constexpr auto kTable = std::to_array<Entry>({
      {kExit, &IsExitCmd},
      {"--add", &IsAddCmd},
      {"-a", &IsAddCmd},
      {"--delete", &IsDeleteCmd},
      {"-d", &IsDeleteCmd},
      {"--search", &IsSearchCmd},
      {"-s", &IsSearchCmd},
      {"--kill", &IsKillCmd},
      {"--reload", &IsReloadCmd},
      {"--hostapd", &IsHostapdCmd},
      {"--virt", &IsVirtCmd},
      {"--setIP", &IsSetIpCmd},
      {"--delVirt", &IsDelVirtCmd},
      {"--unmanaged", &IsUnmanagedCmd},
      {"--randomPort", &IsRandomPortCmd},
      {"--randomPortDel", &IsDelRandomPortCmd},
      {"--unblock", &IsUnblockCmd},
      {"--btup", &IsBtupCmd},
      {"--nopluginInput", &IsNopluginInputCmd},
      {"--nopluginNull", &IsNopluginNullCmd},
      {"--nohidden", &IsNohiddenCmd},
      {"--disconbt", &IsDisconbtCmd},
  });
  return std::apply(
      [option](const auto&... entries) {
        CmdChecker found = nullptr;
        static_cast<void>(((option == entries.option && (found = entries.checker, true)) || ...));
        return found;
      },
      kTable);
}

bool VerifyCmds::IsValidCmd(std::string_view cmdLine) const {
  const WordList words(cmdLine);
  if (words.size() < 2) {
    return false;
  }
  const CmdChecker checker = FindChecker(words[1]);
  if (checker == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "It doesn't find this command");
    return false;
  }
  return checker(words);
}

bool VerifyCmds::IsExitCmd(const WordList& words) {
  return words.size() == 2 && words[0] == kDaemonName && words[1] == kExit;
}

bool VerifyCmds::IsAddCmd(const WordList& words) { return words.size() == 2; }

bool VerifyCmds::IsDeleteCmd(const WordList& words) { return words.size() == 2; }

bool VerifyCmds::IsSearchCmd(const WordList& words) { return words.size() == 2; }

bool VerifyCmds::IsNopluginInputCmd(const WordList& words) { return words.size() == 2; }

bool VerifyCmds::IsNopluginNullCmd(const WordList& words) { return words.size() == 2; }

bool VerifyCmds::IsNohiddenCmd(const WordList& words) {
  return words.size() == 3 && Utils::IsWord(words[2]);
}

bool VerifyCmds::IsBtupCmd(const WordList& words) {
  return words.size() == 3 && Utils::IsWord(words[2]);
}

bool VerifyCmds::IsDelVirtCmd(const WordList& words) {
  return words.size() == 3 && Utils::IsWord(words[2]);
}

bool VerifyCmds::IsUnmanagedCmd(const WordList& words) {
  return words.size() == 3 && Utils::IsMacAddress(words[2]);
}

bool VerifyCmds::IsKillCmd(const WordList& words) { return words.size() == 3 && IsPid(words[2]); }

bool VerifyCmds::IsRandomPortCmd(const WordList& words) {
  return words.size() == 3 && IsPort(words[2]);
}

bool VerifyCmds::IsDelRandomPortCmd(const WordList& words) {
  return words.size() == 3 && IsPort(words[2]);
}

bool VerifyCmds::IsUnblockCmd(const WordList& words) {
  return words.size() == 3 && IsUnblockIndex(words[2]);
}

bool VerifyCmds::IsSetIpCmd(const WordList& words) {
  return words.size() == 4 && words[2] == kInterfaceName && Utils::IsIpv4Address(words[3]);
}

bool VerifyCmds::IsVirtCmd(const WordList& words) {
  return words.size() == 4 && Utils::IsWord(words[2]) && words[3] == kInterfaceName;
}

bool VerifyCmds::IsDisconbtCmd(const WordList& words) {
  return words.size() == 4 && Utils::IsWord(words[2]) && Utils::IsMacAddress(words[3]);
}

bool VerifyCmds::IsHostapdCmd(const WordList& words) {
  return (words.size() == 6 || words.size() == 7) && IsChannel(words[2]) && IsWord16(words[3]) &&
         IsWord64(words[4]);
}

bool VerifyCmds::IsReloadCmd(const WordList& words) {
  return words.size() == 7 && IsChannel(words[2]) && IsWord16(words[3]) && IsWord64(words[4]) &&
         IsPid(words[6]);
}

bool VerifyCmds::IsWord16(std::string_view word) {
  return word.size() == 16 && Utils::IsWord(word);
}

bool VerifyCmds::IsWord64(std::string_view word) {
  return word.size() == 64 && Utils::IsWord(word);
}

bool VerifyCmds::IsPid(std::string_view word) {
  return word.size() <= kMaxPidLength && Utils::IsNumber(word);
}

bool VerifyCmds::IsChannel(std::string_view word) {
  return IsNumberInRange(word, kMinChannel, kMaxChannel);
}

bool VerifyCmds::IsPort(std::string_view word) { return IsNumberInRange(word, 0, kMaxPort); }

bool VerifyCmds::IsUnblockIndex(std::string_view word) {
  return IsNumberInRange(word, 0, kMaxUnblockIndex);
}

}  // namespace Velmar
