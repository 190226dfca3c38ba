#include "daemon/SenderQuery.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include "utils/Bus.h"

namespace Velmar {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// An answer takes a fraction of a millisecond. The first wait is short: a new connection helps
// where the answer was dropped.
constexpr milliseconds kFirstPatience{1000};
constexpr milliseconds kConnectPatience{2000};
constexpr milliseconds kSecondPatience{2000};
constexpr milliseconds kSlow{500};

UniqueBus g_bus;
bool g_wasSlow = false;

// Keeps the old connection until the new one is there.
int OpenAnew() {
  UniqueBus bus;
  int r = StartSystemBus(bus);
  if (r >= 0) {
    r = AwaitConnection(bus.get(), kConnectPatience);
  }
  if (r >= 0) {
    g_bus = std::move(bus);
  }
  return r;
}

bool IsAnswer(int result) { return result > 0 || result == -ENXIO || result == -ENODATA; }

int AskTwice(const char* sender) {
  const int first = g_bus ? QueryPid(g_bus.get(), sender, kFirstPatience) : -ENOTCONN;
  if (IsAnswer(first)) {
    return first;
  }
  const int opened = OpenAnew();
  return g_bus ? QueryPid(g_bus.get(), sender, kSecondPatience) : opened;
}

}  // namespace

void PrepareSenderQuery() { static_cast<void>(OpenAnew()); }

int QuerySenderPid(const char* sender) {
  const Clock::time_point start = Clock::now();
  const int result = AskTwice(sender);
  g_wasSlow = Clock::now() - start > kSlow;
  return result;
}

bool WasLastQuerySlow() { return g_wasSlow; }

}  // namespace Velmar
