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

constexpr const char* kText = "a value of some length";

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
    text.append("key_").append(std::to_string(i)).append("=").append(kText).append("\n");
  }
  // Whole lines, and not more bytes than asked for.
  text.resize(text.rfind('\n', size - 1) + 1);
  return text;
}

constexpr const char* kSection = "section0";
constexpr const char* kKey = "key_7";
constexpr int kNumber = 4711;

bool Load(const std::string& path) {
  Velmar::IniParser parser;
  return parser.Load(path) == 0;
}

bool LoadByPeer(const std::string& path) {
  CSimpleIniCaseA ini;
  return ini.LoadFile(path.c_str()) >= 0;
}

bool Set(const std::string& path) {
  Velmar::IniParser parser;
  parser.SetInt(path, kSection, kKey, kNumber);
  return true;
}

bool SetByPeer(const std::string& path) {
  CSimpleIniCaseA ini;
  return ini.LoadFile(path.c_str()) >= 0 && ini.SetLongValue(kSection, kKey, kNumber) >= 0 &&
         ini.SaveFile(path.c_str(), false) >= 0;
}

std::string Value(const std::string& path) {
  return Velmar::IniParser().GetString(path, kSection, kKey);
}

std::string ValueByPeer(const std::string& path) {
  CSimpleIniCaseA ini;
  return ini.LoadFile(path.c_str()) >= 0 ? ini.GetValue(kSection, kKey, "") : "";
}

// Each writes a file of its own: SimpleIni separates sections by empty lines, with which ours does
// not load a file, and ours writes the keys in another order.
void AddSize(std::size_t size, const std::string& name, double loadBound) {
  static const BrimletTest::TempFolder folder;
  const std::string text = MakeText(size);
  const std::string path = folder / (std::to_string(size) + "-read");
  const std::string ownPath = folder / (std::to_string(size) + "-brimlet");
  const std::string peerPath = folder / (std::to_string(size) + "-peer");
  for (const std::string& file : {path, ownPath, peerPath}) {
    BrimletTest::WriteWhole(file, text);
  }
  Require(Load(path) && Value(path) == kText, "IniParser::Load");
  Require(LoadByPeer(path) && ValueByPeer(path) == kText, "SimpleIni: load");
  const std::string number = std::to_string(kNumber);
  Require(Set(ownPath) && Load(ownPath) && Value(ownPath) == number, "IniParser::SetInt");
  Require(SetByPeer(peerPath) && ValueByPeer(peerPath) == number, "SimpleIni: set");
  Line("INI load, " + name, Repeat(path, Direct<Load>()))
      .Peer("SimpleIni", loadBound, Repeat(path, Direct<LoadByPeer>()));
  Line("INI SetInt, " + name, Repeat(ownPath, Direct<Set>()))
      .Peer("SimpleIni", 0.65, Repeat(peerPath, Direct<SetByPeer>()));
}

}  // namespace

void AddIniParser() {
  AddSize(4096, "4 KiB", 0.8);
  AddSize(65536, "64 KiB", 0.65);
  AddSize(1048576, "1 MiB", 0.65);
}

}  // namespace BrimletBench
