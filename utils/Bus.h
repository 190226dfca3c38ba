// Handles of the bus library, and the one question that both ends of a call ask about the other.
// Internal: not installed.
#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <memory>

namespace Velmar {

struct BusReleaser {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  void operator()(sd_bus_creds* creds) const { sd_bus_creds_unref(creds); }
};

using UniqueBus = std::unique_ptr<sd_bus, BusReleaser>;
using UniqueSlot = std::unique_ptr<sd_bus_slot, BusReleaser>;
using UniqueMessage = std::unique_ptr<sd_bus_message, BusReleaser>;
using UniqueCreds = std::unique_ptr<sd_bus_creds, BusReleaser>;

// Asks the bus for the process id of a message's sender, over `bus`. On failure tells onFailure(the
// step, the negative error, the credentials as far as they came) and returns the error.
template <typename OnFailure>
int QuerySenderPid(sd_bus* bus, sd_bus_message* message, OnFailure onFailure) {
  sd_bus_creds* queried = nullptr;
  int r =
      sd_bus_get_name_creds(bus, sd_bus_message_get_sender(message), SD_BUS_CREDS_PID, &queried);
  const UniqueCreds creds(queried);
  if (r < 0) {
    onFailure("sd_bus_query_sender_creds", r, static_cast<const void*>(creds.get()));
    return r;
  }
  pid_t pid = -1;
  r = sd_bus_creds_get_pid(creds.get(), &pid);
  if (r < 0) {
    onFailure("sd_bus_creds_get_pid", r, static_cast<const void*>(creds.get()));
    return r;
  }
  return pid;
}

}  // namespace Velmar
