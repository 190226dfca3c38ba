#include "daemon/BusService.h"

#include <poll.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <iterator>

#include "common/LogStatement.h"
#include "daemon/CallerAuth.h"
#include "daemon/CommandMethod.h"
#include "daemon/SenderQuery.h"
#include "utils/Bus.h"

namespace Velmar {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr const char* kNameFailure = "Failed to acquire service name: ";
constexpr std::chrono::milliseconds kConnectPatience{3000};
constexpr std::chrono::milliseconds kIdleWait{2000};
constexpr std::chrono::milliseconds kNamePatience{3000};

const sd_bus_vtable BrimletdBusVtable[] = {
    SD_BUS_VTABLE_START(0),
    // Open to every user of the bus: the handler decides who is admitted.
    SD_BUS_METHOD(kMethodName, "s", "s", BrimletPopen, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

// Whether a step has worked. Logs its failure.
bool HasWorked(int result, const char* failure) {
  if (result < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "%s%d", failure, result);
  }
  return result >= 0;
}

int ExportObject(sd_bus* bus, UniqueSlot& slot) {
  sd_bus_slot* exported = nullptr;
  const int r =
      sd_bus_add_object_vtable(bus, &exported, kObjectPath, kBusName, BrimletdBusVtable, nullptr);
  slot.reset(exported);
  return r;
}

// Strangers can make a question about a sender slow again and again, but not hide the parent's end.
int ProcessPending(sd_bus* bus) {
  int r = 0;
  do {
    r = sd_bus_process(bus, nullptr);
  } while (r > 0 && !WasLastQuerySlow());
  return r;
}

// As sd_bus_wait(), but also drops what strangers send to SenderQuery's connection meanwhile.
int Wait(sd_bus* bus) {
  const Clock::time_point end = Clock::now() + kIdleWait;
  pollfd both[] = {{sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0}, {}};
  std::chrono::milliseconds left = kIdleWait;
  int ready = 0;
  do {
    both[1] = {GetSenderQueryFd(), POLLIN, 0};
    ready = poll(both, std::size(both), static_cast<int>(left.count()));
    TendSenderQuery();
    left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
  } while (ready > 0 && both[0].revents == 0 && left.count() > 0);
  return sd_bus_wait(bus, 0);
}

}  // namespace

int RunBusService() {
  UniqueBus bus;
  UniqueSlot slot;
  // The object comes before the name: whoever sees the name finds the method.
  if (!HasWorked(StartSystemBus(bus), "Failed to connect to system bus: ") ||
      !HasWorked(ExportObject(bus.get(), slot), "Failed to issue method call: ") ||
      !HasWorked(AwaitConnection(bus.get(), kConnectPatience), kNameFailure)) {
    return 1;
  }
  PrepareSenderQuery();
  if (!HasWorked(RequestName(bus.get(), kBusName, kNamePatience), kNameFailure)) {
    return 1;
  }
  while (HasWorked(ProcessPending(bus.get()), "Failed to sd_bus_process: ") &&
         HasWorked(Wait(bus.get()), "Failed to sd_bus_wait: ") &&
         HasWorked(CheckParent(getppid()), "Failed to CheckParent, r:")) {
  }
  return 1;
}

}  // namespace Velmar
