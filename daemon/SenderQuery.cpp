#include "daemon/SenderQuery.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include "utils/Bus.h"

namespace Velmar {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kStartPatience{3000};
// An answer takes a fraction of a millisecond. The first wait is short: a new connection helps
// where the bus has dropped the answer.
constexpr milliseconds kFirstPatience{1000};
constexpr milliseconds kConnectPatience{2000};
constexpr milliseconds kSecondPatience{3000};
constexpr milliseconds kTendPatience{200};
constexpr milliseconds kSlow{500};

UniqueBus g_bus;
UniqueBus g_next;  // in place of g_bus, once the bus lets it in
bool g_wasSlow = false;

int OpenAnew(milliseconds patience) {
  int r = g_next ? 0 : StartSystemBus(g_next);
  if (r >= 0) {
    r = AwaitConnection(g_next.get(), patience);
  }
  if (r >= 0) {
    g_bus = std::move(g_next);
  } else if (r != -ETIMEDOUT) {  // one that timed out goes on waiting for the bus to let it in
    g_next.reset();
  }
  return r;
}

bool IsAnswer(int result) { return result > 0 || result == -ENXIO || result == -ENODATA; }

int AskTwice(const char* sender) {
  const int first = g_bus ? QueryPid(g_bus.get(), sender, kFirstPatience) : -ENOTCONN;
  if (IsAnswer(first)) {
    return first;
  }
  const int opened = OpenAnew(kConnectPatience);
  return g_bus ? QueryPid(g_bus.get(), sender, kSecondPatience) : opened;
}

}  // namespace

void PrepareSenderQuery() { static_cast<void>(OpenAnew(kStartPatience)); }

int QuerySenderPid(const char* sender) {
  const Clock::time_point start = Clock::now();
  const int result = AskTwice(sender);
  g_wasSlow = Clock::now() - start > kSlow;
  return result;
}

void TendSenderQuery() {
  const int r = g_bus ? DropPending(g_bus.get(), kTendPatience) : -ENOTCONN;
  if (r < 0 && OpenAnew(kTendPatience) < 0) {
    g_bus.reset();
  }
}

int GetSenderQueryFd() { return g_bus ? sd_bus_get_fd(g_bus.get()) : -1; }

bool WasLastQuerySlow() { return g_wasSlow; }

}  // namespace Velmar
