// A file is read and saved as the model of the dialect does it, and what was saved loads again.
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "fuzz/IniModel.h"

using BrimletTest::IniModel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("ini", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  std::string text(data, data + size);
  for (char& c : text) c = c >= '/' && c <= '9' ? 'n' : c;  // the model's names are without these
  std::ofstream(path) << text;
  Velmar::IniParser parser;
  const auto read = parser.GetFileData(path);
  IniModel model;
  bool isRight = model.Read(text) == (read != nullptr);
  if (read == nullptr || read->mSections.empty()) {
    isRight = isRight && parser.Save(path) == -1;
  } else {
    isRight = isRight && IniModel::Of(*read) == model && parser.Save(path) == 0;
    std::ifstream saved(path);
    isRight = isRight && model.IsWrittenAs({std::istreambuf_iterator<char>(saved), {}});
  }
  if (!isRight) std::abort();  // which makes the fuzzer keep the input
  return 0;
}
