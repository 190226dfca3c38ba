// The policy allows a line if and only if the patterns do.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "fuzz/Grammar.h"
#include "verifycmds/verifycmds.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Velmar::VerifyCmds policy;
  const std::string line(data, data + std::min(size, std::size_t{256}));
  if (policy.IsValidCmd(line) != BrimletTest::IsAllowed(line)) std::abort();  // it keeps the input
  return 0;
}
