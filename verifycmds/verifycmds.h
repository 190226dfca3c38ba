// The command policy: which command lines the daemon may run.
//
// A line is a byte string whose words are separated by single blanks (0x20). Word 0 names the
// program, word 1, the option word, chooses a rule, and the rule checks the number of words and
// their shapes. The rules stand in one table (Rules.cpp), which `brimlet-check --grammar` prints.
#pragma once

#include <string_view>

#include "common/Singleton.h"

namespace Velmar {

// The object of a process is SingletonNew<VerifyCmds>::GetInstance(). It holds nothing; calls may
// come from several threads.
class VerifyCmds {
 public:
  // True when the line may be run. Refuses a line with an unknown option word with one ERROR line
  // in the log, and every other line silently. Takes time in proportion to the length of the line
  // and, besides a copy of one word at a time, a fixed amount of memory.
  [[nodiscard]] bool IsValidCmd(std::string_view cmdLine) const;
};

}  // namespace Velmar
