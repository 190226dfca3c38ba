// How long it takes to load a file of settings, next to SimpleIni. The files lie in the working
// folder.
#include <benchmark/benchmark.h>

#include "storage/IniParser.h"
#define SI_CONVERT_ICU  // as its package is built
#include <SimpleIni.h>

#include <cstddef>
#include <fstream>
#include <string>

namespace {

using benchmark::State;

// Sections of twenty keys under a comment each, as many whole lines as there is room for. Comments
// behind values are left out: to SimpleIni they belong to the values.
std::string MakeFile(State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  std::string text;
  for (int i = 0; text.size() < size; ++i) {
    const std::string section = std::to_string(i / 20);
    text += i % 20 == 0 ? ";about section " + section + "\n[section" + section + "]\n" : "";
    text += "key_" + std::to_string(i) + "=a value of some length\n";
  }
  std::ofstream("settings") << text.substr(0, text.rfind('\n', size - 1) + 1);
  return "settings";
}

void IniLoad(State& state) {
  const std::string path = MakeFile(state);
  for (auto _ : state) {
    Velmar::IniParser parser;
    if (parser.Load(path) != 0) {
      state.SkipWithError("not loaded");
      break;
    }
  }
}
BENCHMARK(IniLoad)->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20);

void IniLoad_SimpleIni(State& state) {
  const std::string path = MakeFile(state);
  for (auto _ : state) {
    CSimpleIniCaseA parser;
    if (parser.LoadFile(path.c_str()) < 0) {
      state.SkipWithError("not loaded");
      break;
    }
  }
}
BENCHMARK(IniLoad_SimpleIni)->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20);

}  // namespace
