// A file is read and saved as the model of the dialect does it, and what was saved loads again.
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

#include "fuzz/IniModel.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto path = "/proc/self/fd/" + std::to_string(memfd_create("ini", MFD_CLOEXEC));
  std::string text(data, data + size);
  for (char& c : text) c = c >= '/' && c <= '9' ? 'n' : c;  // the model's names are without these
  Velmar::IniParser parser;
  if (!BrimletTest::AgreesWithModel(parser, path, text)) std::abort();  // it keeps the input
  return 0;
}
