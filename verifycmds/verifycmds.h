// The command policy: which command lines the daemon may run.
//
// A line is a byte string whose words are separated by single blanks (0x20). Word 0 names the
// program, word 1, the option word, chooses a rule, and the rule checks the number of words and
// their shapes. README.md shows the whole grammar.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace Velmar {

// The object of a process is SingletonNew<VerifyCmds>::GetInstance(). It does not change once it is
// made; calls may come from several threads.
class VerifyCmds {
 public:
  // True when the line may be run. A line with an unknown option word is refused with one ERROR
  // line in the log; every other refusal is silent. Takes time in proportion to the length of the
  // line and, whatever the line, a fixed amount of memory.
  [[nodiscard]] bool IsValidCmd(std::string_view cmdLine) const;

 private:
  // The words of a line, as views into it. No rule allows more than 7 words; of a longer line 8 are
  // kept, so that every rule refuses it for its number of words.
  class WordList {
   public:
    // As Utils::Split does with one blank: empty words count, but for one behind a blank that ends
    // the line.
    explicit WordList(std::string_view line) {
      const char* start = line.data();
      const char* const end = start + line.size();
      while (start != end && mCount < kCapacity) {
        const void* const blank = std::memchr(start, ' ', static_cast<std::size_t>(end - start));
        const char* const wordEnd = blank == nullptr ? end : static_cast<const char*>(blank);
        mWords[mCount++] = {start, wordEnd};
        start = wordEnd == end ? end : wordEnd + 1;
      }
    }

    [[nodiscard]] std::size_t size() const { return mCount; }
    std::string_view operator[](std::size_t index) const {
      const Word& word = mWords[index];
      return {word.begin, static_cast<std::size_t>(word.end - word.begin)};
    }

   private:
    // An array of views would be zeroed first.
    struct Word {
      const char* begin;
      const char* end;
    };

    static constexpr std::size_t kCapacity = 8;
    std::array<Word, kCapacity> mWords;
    std::size_t mCount = 0;
  };

  // True: the line is allowed.
  using CmdChecker = bool (*)(const WordList& words);

  // The rule of an option word, which is compared exactly, or null.
  static CmdChecker FindChecker(std::string_view option);

  // The rules.
  static bool IsExitCmd(const WordList& words);
  static bool IsAddCmd(const WordList& words);
  static bool IsDeleteCmd(const WordList& words);
  static bool IsSearchCmd(const WordList& words);
  static bool IsKillCmd(const WordList& words);
  static bool IsReloadCmd(const WordList& words);
  static bool IsHostapdCmd(const WordList& words);
  static bool IsVirtCmd(const WordList& words);
  static bool IsSetIpCmd(const WordList& words);
  static bool IsDelVirtCmd(const WordList& words);
  static bool IsUnmanagedCmd(const WordList& words);
  static bool IsRandomPortCmd(const WordList& words);
  static bool IsDelRandomPortCmd(const WordList& words);
  static bool IsUnblockCmd(const WordList& words);
  static bool IsBtupCmd(const WordList& words);
  static bool IsNopluginInputCmd(const WordList& words);
  static bool IsNopluginNullCmd(const WordList& words);
  static bool IsNohiddenCmd(const WordList& words);
  static bool IsDisconbtCmd(const WordList& words);

  // The checks of single words that several rules share.
  static bool IsWord16(std::string_view word);
  static bool IsWord64(std::string_view word);
  static bool IsPid(std::string_view word);
  static bool IsChannel(std::string_view word);
  static bool IsPort(std::string_view word);
  static bool IsUnblockIndex(std::string_view word);
};

}  // namespace Velmar
