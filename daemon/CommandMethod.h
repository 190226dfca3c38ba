// The body of the daemon's one method: admits or refuses the caller, asks the policy, runs the
// command line, replies. For use by the daemon's one thread.
#pragma once

#include <systemd/sd-bus.h>

namespace Velmar {

// Handles one call of the method:
//   - the caller is not admitted: replies "auth failed" and does not even read the argument;
//   - the argument cannot be read as one string: leaves the reply, an error, to the bus library;
//   - the argument is "brimletd --exit": ends the process with exit status 0, without a reply;
//   - the policy refuses the line, the shell cannot be started (the line may be too long for it),
//     or the output has 102400 bytes or more, or begins with a zero byte: replies
//     "ExecutePopen failed!";
//   - everything else: runs the line through the shell, waits until it has ended, and replies with
//     its standard output less the last byte (in general a line feed), whatever its exit status.
//
// In each piece of output (a line, or 1023 bytes of a longer one) a zero byte hides the rest of the
// piece. The bus library replies with an error to output that is no valid UTF-8. A command has
// no time limit.
//
// `userdata` and `error` are not used. Logs a failure as ERROR. Returns 1 once it has replied, so
// that the bus library does not send an error as a second reply; otherwise a negative error, which
// the library sends.
int BrimletPopen(sd_bus_message* message, void* userdata, sd_bus_error* error);

}  // namespace Velmar
