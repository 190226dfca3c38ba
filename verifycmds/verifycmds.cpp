#include "verifycmds/verifycmds.h"

#include "common/LogStatement.h"
#include "verifycmds/Rules.h"

namespace Velmar {
namespace {

constexpr const char* kModule = "ORVIX_BRIMLETD";

}  // namespace

bool VerifyCmds::IsValidCmd(std::string_view cmdLine) const {
  const Fault fault = Judge(cmdLine).fault;
  if (fault == Fault::kUnknownOption) {
    BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "It doesn't find this command");
  }
  return fault == Fault::kNone;
}

}  // namespace Velmar
