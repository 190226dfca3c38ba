// The system bus as both ends of a call use it. Internal: not installed.
//
// Everybody on the bus may send anything to these connections. So none of them takes descriptors,
// every wait has an end, and they drop unasked messages one at a time. Results are those of the bus
// library: negative error numbers for failures.
#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <chrono>
#include <memory>

namespace Velmar {

// Both the well-known bus name and the name of the interface.
inline constexpr const char* kBusName = "com.tolvane.brimlet";
inline constexpr const char* kObjectPath = "/com/tolvane/brimlet";
// Input "s", a command line; output "s", its output or an error text.
inline constexpr const char* kMethodName = "brimletd";

struct BusReleaser {
  // Without a flush, which would wait for ever for a bus that reads nothing.
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

using UniqueBus = std::unique_ptr<sd_bus, BusReleaser>;
using UniqueSlot = std::unique_ptr<sd_bus_slot, BusReleaser>;
using UniqueMessage = std::unique_ptr<sd_bus_message, BusReleaser>;

// Begins to connect to the system bus, as sd_bus_open_system() does, and does not wait for it.
// `bus` is replaced only on success.
int StartSystemBus(UniqueBus& bus);

// Waits until the connection is there. -ETIMEDOUT: it is not there after `patience`.
int AwaitConnection(sd_bus* bus, std::chrono::milliseconds patience);

// Sends a call and waits for its reply, which may be an error. -ETIMEDOUT: there is none after
// `patience`. Drops every other message that arrives meanwhile.
int Exchange(sd_bus* bus, sd_bus_message* call, std::chrono::milliseconds patience,
             UniqueMessage& reply);

// Drops all messages that have arrived. Returns 0, or 1 when `patience` is over before the last.
int DropPending(sd_bus* bus, std::chrono::milliseconds patience);

// Asks the bus for a well-known name by Exchange(), without queueing for it or replacing its owner.
// -EEXIST: another connection owns it.
int RequestName(sd_bus* bus, const char* name, std::chrono::milliseconds patience);

// Asks the bus for the process id of the connection `name` by Exchange(). Returns it, which is
// positive. -ENXIO: the bus knows no such connection. -ENODATA: it has no process id here. After
// every other error it makes sense to ask again.
int QueryPid(sd_bus* bus, const char* name, std::chrono::milliseconds patience);

// The step in which QueryPid() failed with `error`, by the name that people search the log for.
const char* GetFailedStep(int error);

}  // namespace Velmar
