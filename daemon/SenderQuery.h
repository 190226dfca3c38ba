// Which process has sent a message: asked of the bus over a connection of its own.
//
// On the connection that serves calls the bus library would keep every call that arrives before the
// answer, without a bound. On this one nothing is kept. But it owns no name, so no policy keeps
// strangers from sending to it: their messages are dropped one by one, and where they have filled
// its queue at the bus, which then drops the answer, the question is asked again on a new one.
//
// For use by the daemon's one thread.
#pragma once

namespace Velmar {

// Opens the connection ahead of the first question, when strangers have had no time to get in the
// way. A failure is left to the first question.
void PrepareSenderQuery();

// Returns the process id of the connection `sender`, or a negative error as QueryPid() does. After
// anything but an answer it asks once more: on a new connection or, where none can be opened, on
// the old one. Takes at most 5 seconds in all.
int QuerySenderPid(const char* sender);

// Whether the last question took longer than a working bus does, which strangers can bring about
// again and again.
bool WasLastQuerySlow();

}  // namespace Velmar
