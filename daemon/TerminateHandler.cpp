// What becomes of an exception that nobody catches. The C++ library's own handler, which the daemon
// would carry with it, spells out its type: a third of the daemon's file, for one line.

#include <cstdlib>

namespace __gnu_cxx {  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): its name
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void __verbose_terminate_handler() { std::abort(); }
}  // namespace __gnu_cxx
