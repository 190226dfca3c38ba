#include "benchmarks/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::int64_t> g_allocations{0};
}  // namespace

// All other forms of new and delete lead here.
void* operator new(std::size_t size) {
  // Not an atomic addition, which would be dear for everybody: with several threads some are
  // missed.
  g_allocations.store(g_allocations.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace BrimletBench {

std::int64_t CountAllocations() { return g_allocations.load(std::memory_order_relaxed); }

}  // namespace BrimletBench
