// The command policy: which command lines the daemon may run.
//
// A line is a byte string whose words are separated by single blanks (0x20). Word 0 names the
// program, word 1, the option word, chooses a rule, and the rule checks the number of words and
// their shapes. README.md shows the whole grammar.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace Velmar {

// The object of a process is SingletonNew<VerifyCmds>::GetInstance(). It does not change once it is
// made; calls may come from several threads.
class VerifyCmds {
 public:
  VerifyCmds();

  // True when the line may be run. A line with an unknown option word is refused with one ERROR
  // line in the log; every other refusal is silent. Takes time in proportion to the length of the
  // line and, whatever the line, a fixed amount of memory.
  [[nodiscard]] bool IsValidCmd(std::string_view cmdLine) const;

 private:
  // The words of a line, as views into it. No rule allows more than 7 words; of a longer line 8 are
  // kept, so that every rule refuses it for its number of words.
  class WordList {
   public:
    explicit WordList(std::string_view line);
    [[nodiscard]] std::size_t size() const { return mCount; }
    std::string_view operator[](std::size_t index) const { return mWords[index]; }

   private:
    static constexpr std::size_t kCapacity = 8;
    std::array<std::string_view, kCapacity> mWords;
    std::size_t mCount = 0;
  };

  // True: the line is allowed.
  using CmdChecker = bool (VerifyCmds::*)(const WordList& words) const;

  // The rules.
  bool IsExitCmd(const WordList& words) const;
  bool IsAddCmd(const WordList& words) const;
  bool IsDeleteCmd(const WordList& words) const;
  bool IsSearchCmd(const WordList& words) const;
  bool IsKillCmd(const WordList& words) const;
  bool IsReloadCmd(const WordList& words) const;
  bool IsHostapdCmd(const WordList& words) const;
  bool IsVirtCmd(const WordList& words) const;
  bool IsSetIpCmd(const WordList& words) const;
  bool IsDelVirtCmd(const WordList& words) const;
  bool IsUnmanagedCmd(const WordList& words) const;
  bool IsRandomPortCmd(const WordList& words) const;
  bool IsDelRandomPortCmd(const WordList& words) const;
  bool IsUnblockCmd(const WordList& words) const;
  bool IsBtupCmd(const WordList& words) const;
  bool IsNopluginInputCmd(const WordList& words) const;
  bool IsNopluginNullCmd(const WordList& words) const;
  bool IsNohiddenCmd(const WordList& words) const;
  bool IsDisconbtCmd(const WordList& words) const;

  // The checks of single words that several rules share.
  static bool IsWord16(std::string_view word);
  static bool IsWord64(std::string_view word);
  static bool IsPid(std::string_view word);
  static bool IsChannel(std::string_view word);
  static bool IsPort(std::string_view word);
  static bool IsUnblockIndex(std::string_view word);

  // By option word; compared exactly. Complete once the object is made.
  std::map<std::string, CmdChecker, std::less<>> mCmdCheckers;
};

}  // namespace Velmar
