// The one way in which the sources of this tree log. Internal: not installed.
//
//   BRIMLET_LOG(LOG_LEVEL_ERROR, kModule, "opendir %s failed", path.c_str());
#pragma once

#include <cstddef>

#include "common/Logger.h"

namespace Velmar {

// The base name of a source file without its ending, taken from __FILE__ at compile time.
template <std::size_t N>
struct SourceName {
  char text[N] = {};

  consteval explicit SourceName(const char (&path)[N]) {
    std::size_t length = 0;
    for (std::size_t i = 0; path[i] != '\0'; ++i) {
      length = path[i] == '/' ? 0 : length + 1;
    }
    const char* name = path + (N - 1 - length);
    for (std::size_t i = 0; i < length && name[i] != '.'; ++i) {
      text[i] = name[i];
    }
  }
};

}  // namespace Velmar

// Writes a line through the process's logger, or does nothing where no logger can be made. The
// format has to be a literal and is checked against its arguments.
#define BRIMLET_LOG(level, module, ...)                                           \
  do {                                                                            \
    if (auto* const logger = ::Velmar::Singleton<::Velmar::Logger>::Instance()) { \
      static constexpr ::Velmar::SourceName sourceName(__FILE__);                 \
      logger->Write((level), sourceName.text, __LINE__, (module), __VA_ARGS__);   \
    }                                                                             \
  } while (false)
