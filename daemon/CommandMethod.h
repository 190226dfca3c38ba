// The body of the daemon's one method: admits or refuses the caller, asks the policy, runs the
// command line, replies. For use by the daemon's one thread.
#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>

namespace Velmar {

// The only line that stops the daemon, byte for byte.
inline constexpr const char* kBrimletdExitCommand = "brimletd --exit";

// The replies that are not a command's output.
inline constexpr const char* kAuthFailedReply = "auth failed";
inline constexpr const char* kExecuteFailedReply = "ExecutePopen failed!";

// A command's output has to be shorter than this, in bytes.
inline constexpr std::size_t MAX_BUF_SIZE = 102400;

// A line has to be shorter than this, in bytes: 32 pages of 4 KiB, what a kernel with such pages
// takes as one argument of a program, here the shell. With larger pages it is refused all the same.
inline constexpr std::size_t kMaxCommandSize = 131072;

// Handles one call of the method:
//   - the caller is not admitted: replies kAuthFailedReply, and the argument is not even read;
//   - the argument cannot be read as one string: does not reply;
//   - the argument is kBrimletdExitCommand: ends the process with exit status 0, without a reply;
//   - everything else: ExecutePopen().
// `userdata` and `error` are not used. Returns a non-negative value when the command ran and its
// output was sent, otherwise a negative one; what failed is logged as ERROR. The result does not
// tell whether a reply was sent.
int BrimletPopen(sd_bus_message* message, void* userdata, sd_bus_error* error);

// What is registered with the bus library: BrimletPopen(), but once a reply was sent the library is
// told that the call is handled, whatever the result. Otherwise it would send an error as a second
// reply, which the bus rejects.
int HandleBrimletdCall(sd_bus_message* message, void* userdata, sd_bus_error* error);

// Runs a command line through the shell if the policy allows it, waits until it has ended and
// replies to `message`: its standard output less the last byte (in general a line feed), whatever
// its exit status, or kExecuteFailedReply. In each piece of output (a line, or 1023 bytes of a
// longer one) a zero byte hides the rest of the piece.
//
// Returns the result of sending the output (negative for output that is no valid UTF-8: nothing is
// sent then). Returns -1 after kExecuteFailedReply: the policy refuses the line, it has
// kMaxCommandSize bytes or more, the shell cannot be started, the output is MAX_BUF_SIZE bytes or
// longer or begins with a zero byte. There is no time limit. For one thread: all calls share one
// buffer for the output, which keeps it until the next.
int ExecutePopen(sd_bus_message* message, const char* command);

}  // namespace Velmar
