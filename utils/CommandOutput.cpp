#include "utils/CommandOutput.h"

#include <cstddef>

#include "utils/CommandPipe.h"

namespace Velmar::Utils {
namespace {

constexpr std::size_t kBufferSize = 1025;

// Bits 8 to 15 of a wait status, also of a command that a signal ended.
int GetExitCode(int status) { return (status >> 8) & 0xff; }

void Clean(std::string& text) {
  const std::size_t lastLineFeed = text.rfind('\n');
  if (lastLineFeed != std::string::npos) {
    text.erase(lastLineFeed, 1);
  }
  text.erase(text.find_last_not_of(' ') + 1);
  text.erase(0, text.find_first_not_of(' '));
}

}  // namespace

std::string GetCmdOutput(const std::string& cmd) {
  if (cmd.empty() || cmd.find("./") != std::string::npos) {
    return "";
  }
  UniquePipe pipe = OpenCommand(cmd.c_str());
  if (!pipe) {
    return "";
  }
  std::string text;
  char buffer[kBufferSize];
  while (const char* const piece = std::fgets(buffer, sizeof buffer, pipe.get())) {
    text.append(piece);
  }
  const int status = pclose(pipe.release());
  if (status == -1 || GetExitCode(status) != 0) {
    return "";
  }
  Clean(text);
  return text;
}

std::string GetUuid() { return GetCmdOutput("cat /proc/sys/kernel/random/uuid"); }

}  // namespace Velmar::Utils
