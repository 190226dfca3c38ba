#include "daemon/BusService.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

#include "common/LogStatement.h"
#include "daemon/CallerAuth.h"
#include "daemon/CommandMethod.h"
#include "daemon/SenderQuery.h"
#include "utils/Bus.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr int kStopped = 1;
constexpr const char* kNameFailure = "Failed to acquire service name: ";
constexpr std::chrono::milliseconds kConnectPatience{3000};
constexpr std::uint64_t kIdleWaitUsec = 2000000;
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

// Not at all while strangers send faster than the daemon drops it.
int Wait(sd_bus* bus) { return sd_bus_wait(bus, TendSenderQuery() ? 0 : kIdleWaitUsec); }

}  // namespace

int RunBusService() {
  UniqueBus bus;
  UniqueSlot slot;
  // The object comes before the name: whoever sees the name finds the method.
  if (!HasWorked(StartSystemBus(bus), "Failed to connect to system bus: ") ||
      !HasWorked(ExportObject(bus.get(), slot), "Failed to issue method call: ") ||
      !HasWorked(AwaitConnection(bus.get(), kConnectPatience), kNameFailure)) {
    return kStopped;
  }
  PrepareSenderQuery();
  if (!HasWorked(RequestName(bus.get(), kBusName, kNamePatience), kNameFailure)) {
    return kStopped;
  }
  while (HasWorked(ProcessPending(bus.get()), "Failed to sd_bus_process: ") &&
         HasWorked(Wait(bus.get()), "Failed to sd_bus_wait: ") &&
         HasWorked(CheckParent(getppid()), "Failed to CheckParent, r:")) {
  }
  return kStopped;
}

}  // namespace Velmar
