#include "storage/IniParser.h"

#define SI_CONVERT_ICU  // as its package is built
#include <SimpleIni.h>

#include <cstddef>
#include <string>

#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "tests/Support.h"

namespace BrimletBench {
namespace {

// Sections of twenty keys with a comment each. Trailing comments are left out: to the peer they
// belong to the values.
std::string MakeText(std::size_t size) {
  std::string text;
  for (int i = 0; text.size() < size; ++i) {
    if (i % 20 == 0) {
      const std::string section = std::to_string(i / 20);
      text.append(";about section ").append(section).append("\n[section").append(section);
      text.append("]\n");
    }
    text.append("key_").append(std::to_string(i)).append("=a value of some length\n");
  }
  // Whole lines, and not more bytes than asked for.
  text.resize(text.rfind('\n', size - 1) + 1);
  return text;
}

// The same file for both: what the one has written, the other reads.
void AddSize(std::size_t size, const std::string& name, double loadBound) {
  static const BrimletTest::TempFolder folder;
  const std::string path = folder / std::to_string(size);
  BrimletTest::WriteWhole(path, MakeText(size));
  const auto load = [](const std::string& file) {
    static Velmar::IniParser parser;
    return parser.Load(file) == 0;
  };
  const auto loadByPeer = [](const std::string& file) {
    CSimpleIniCaseA ini;
    return ini.LoadFile(file.c_str()) >= 0;
  };
  const auto set = [](const std::string& file) {
    Velmar::IniParser parser;
    parser.SetInt(file, "section0", "key_7", 4711);
    return true;
  };
  const auto setByPeer = [](const std::string& file) {
    CSimpleIniCaseA ini;
    ini.LoadFile(file.c_str());
    ini.SetLongValue("section0", "key_7", 4711);
    return ini.SaveFile(file.c_str(), false) >= 0;
  };
  Line("INI load, " + name, Repeat(path, load))
      .Peer("SimpleIni", loadBound, Repeat(path, loadByPeer));
  Line("INI SetInt, " + name, Repeat(path, set)).Peer("SimpleIni", 0.65, Repeat(path, setByPeer));
}

}  // namespace

void AddIniParser() {
  AddSize(4096, "4 KiB", 0.8);
  AddSize(65536, "64 KiB", 0.65);
  AddSize(1048576, "1 MiB", 0.65);
}

}  // namespace BrimletBench
