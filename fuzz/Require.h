// How the fuzz targets say that the code under test is wrong.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace BrimletFuzz {

// Ends the process, which makes the fuzzer keep the input, unless `isTrue`.
inline void Require(bool isTrue, const char* promise) {
  if (!isTrue) {
    std::fprintf(stderr, "BROKEN: %s\n", promise);
    std::abort();
  }
}

}  // namespace BrimletFuzz
