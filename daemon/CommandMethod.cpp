#include "daemon/CommandMethod.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <span>

#include "common/LogStatement.h"
#include "common/Singleton.h"
#include "daemon/CallerAuth.h"
#include "utils/CommandPipe.h"
#include "verifycmds/verifycmds.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";
constexpr std::size_t kPieceSize = 1023;

// A result as BrimletPopen() returns it, and whether the caller got a reply.
struct Outcome {
  int result;
  bool isReplied;
};

int Reply(sd_bus_message* message, const char* text) {
  return sd_bus_reply_method_return(message, "s", text);
}

// Replies with a fixed text because of `result`.
Outcome Refuse(sd_bus_message* message, const char* text, int result) {
  return {result, Reply(message, text) >= 0};
}

using OutputBuffer = std::array<char, MAX_BUF_SIZE>;

// Reads all output of a command and puts a terminator in place of its last byte. False when it is
// too long, or begins with a zero byte.
bool ReadOutput(Utils::CommandPipe& pipe, OutputBuffer& output) {
  Utils::ZeroByteFilter filter(kPieceSize);
  std::size_t length = 0;
  const auto read = [&] { return pipe.Read(std::span(output).subspan(length)); };
  for (auto block = read(); !block.empty(); block = read()) {
    const bool isHiddenWhole = length == 0 && block[0] == '\0';
    length += filter.Apply(block);
    if (isHiddenWhole || length >= output.size()) {
      BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "lenBuf >= MAX_BUF_SIZE or < 1!");
      return false;
    }
  }
  output[length > 0 ? length - 1 : 0] = '\0';
  return true;
}

Outcome Execute(sd_bus_message* message, const char* command) {
  if (!SingletonNew<VerifyCmds>::GetInstance().IsValidCmd(command)) {
    BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "command is not in check_whitelist, command =  %s",
                command);
    return Refuse(message, kExecuteFailedReply, -1);
  }
  if (std::strlen(command) >= kMaxCommandSize) {
    return Refuse(message, kExecuteFailedReply, -1);
  }
  Utils::CommandPipe pipe(command);
  if (!pipe.IsOpen()) {
    return Refuse(message, kExecuteFailedReply, -1);
  }
  // Not on the stack, where the first call would make all of its pages resident, for good: the
  // compiler's protection from stack clashes touches every one.
  static OutputBuffer output;
  const bool isWhole = ReadOutput(pipe, output);
  // Waits for the command: it has ended before the caller hears of it.
  pipe.Close();
  if (!isWhole) {
    return Refuse(message, kExecuteFailedReply, -1);
  }
  const int r = Reply(message, output.data());
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "retBuf: %s", output.data());
  return {r, r >= 0};
}

Outcome PopenProcess(sd_bus_message* message) {
  const int auth = CheckAuth(message);
  if (auth < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "CheckAuth failed: %d", auth);
    return Refuse(message, kAuthFailedReply, auth);
  }
  const char* command = nullptr;
  const int r = sd_bus_message_read(message, "s", &command);
  if (r < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "Failed to parse parameters: %d", r);
    return {r, false};
  }
  if (command == nullptr) {
    return {r, false};
  }
  if (std::strcmp(command, kBrimletdExitCommand) == 0) {
    BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "brimletd exit!");
    std::exit(EXIT_SUCCESS);
  }
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "command = %s ", command);
  const Outcome outcome = Execute(message, command);
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "command = %s 函数返回值 = %d", command, outcome.result);
  return outcome;
}

Outcome HandleCall(sd_bus_message* message) {
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "BrimletPopen in");
  if (message == nullptr) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "BrimletPopen error! ");
    return {-1, false};
  }
  const Outcome outcome = PopenProcess(message);
  if (outcome.result < 0) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "PopenProcess fail r:%d ", outcome.result);
  }
  BRIMLET_LOG(LOG_LEVEL_DEBUG, kModule, "BrimletPopen out");
  return outcome;
}

}  // namespace

int BrimletPopen(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  return HandleCall(message).result;
}

int HandleBrimletdCall(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  const Outcome outcome = HandleCall(message);
  return outcome.isReplied ? 1 : outcome.result;
}

int ExecutePopen(sd_bus_message* message, const char* command) {
  return Execute(message, command).result;
}

}  // namespace Velmar
