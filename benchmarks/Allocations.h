// Counts what is taken from the heap.
#pragma once

#include <cstdint>

namespace BrimletBench {

// How often memory was taken with new since the program began.
std::int64_t CountAllocations();

}  // namespace BrimletBench
