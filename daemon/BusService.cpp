#include "daemon/BusService.h"

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>

#include "common/LogStatement.h"
#include "daemon/CallerAuth.h"
#include "daemon/CommandMethod.h"
#include "utils/Bus.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr int kStopped = 1;
constexpr std::uint64_t kIdleWaitUsec = 2000000;
constexpr std::uint64_t kNoNameFlags = 0;  // neither queue for the name nor replace its owner

const sd_bus_vtable BrimletdBusVtable[] = {
    SD_BUS_VTABLE_START(0),
    // Open to every user of the bus: who is admitted is decided by the handler.
    SD_BUS_METHOD(kMethodName, "s", "s", HandleBrimletdCall, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

UniqueBus OpenSystemBus() {
  sd_bus* bus = nullptr;
  const int r = sd_bus_open_system(&bus);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to connect to system bus: %d", r);
  }
  return UniqueBus(bus);
}

UniqueSlot ExportObject(sd_bus* bus) {
  sd_bus_slot* slot = nullptr;
  const int r =
      sd_bus_add_object_vtable(bus, &slot, kObjectPath, kBusName, BrimletdBusVtable, nullptr);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to issue method call: %d", r);
  }
  return UniqueSlot(slot);
}

bool AcquireName(sd_bus* bus) {
  const int r = sd_bus_request_name(bus, kBusName, kNoNameFlags);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to acquire service name: %d", r);
  }
  return r >= 0;
}

// Handles all messages that are pending. False when the connection fails.
bool ProcessPending(sd_bus* bus) {
  int r = 0;
  do {
    r = sd_bus_process(bus, nullptr);
  } while (r > 0);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to sd_bus_process: %d", r);
  }
  return r >= 0;
}

bool WaitForActivity(sd_bus* bus) {
  const int r = sd_bus_wait(bus, kIdleWaitUsec);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to sd_bus_wait: %d", r);
  }
  return r >= 0;
}

bool IsParentAlive() {
  const int r = CheckParent(getppid());
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to CheckParent, r:%d", r);
  }
  return r >= 0;
}

}  // namespace

int RunBusService() {
  const UniqueBus bus = OpenSystemBus();
  if (!bus) {
    return kStopped;
  }
  // Exported before the name is requested: whoever sees the name finds the method.
  const UniqueSlot slot = ExportObject(bus.get());
  if (!slot || !AcquireName(bus.get())) {
    return kStopped;
  }
  while (ProcessPending(bus.get()) && WaitForActivity(bus.get()) && IsParentAlive()) {
  }
  return kStopped;
}

}  // namespace Velmar
