// A shell command and the pipe from its standard output. Internal: not installed.
#pragma once

#include <cstdio>
#include <memory>

namespace Velmar::Utils {

// Closes the pipe and waits for the command to end.
struct PipeCloser {
  void operator()(std::FILE* pipe) const { pclose(pipe); }
};
using UniquePipe = std::unique_ptr<std::FILE, PipeCloser>;

// Starts the shell. Null when it cannot be started. Commands started later do not inherit the pipe.
inline UniquePipe OpenCommand(const char* command) { return UniquePipe(popen(command, "re")); }

}  // namespace Velmar::Utils
