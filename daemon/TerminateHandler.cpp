// Takes the place of the C++ library's handler of exceptions that nobody catches, which the daemon
// would otherwise be linked with: it spells out their types and would be a third of the daemon's
// file.

#include <cstdlib>

namespace __gnu_cxx {  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): its name
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void __verbose_terminate_handler() { std::abort(); }
}  // namespace __gnu_cxx
