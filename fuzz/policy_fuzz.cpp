// The policy allows a line if and only if the table of patterns does.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Require.h"
#include "tests/Grammar.h"
#include "verifycmds/verifycmds.h"

namespace {

// Long enough for every rule, short enough for the table's patterns.
constexpr std::size_t kMaxLine = 256;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Velmar::VerifyCmds policy;
  const std::string line(data, data + std::min(size, kMaxLine));
  const bool isAllowed = BrimletTest::Judge(line) == BrimletTest::Verdict::kAllowed;
  BrimletFuzz::Require(policy.IsValidCmd(line) == isAllowed, "the policy follows its grammar");
  return 0;
}
