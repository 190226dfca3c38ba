// brimlet-check: tells whether the daemon would run a line, and if not, why not. It judges by the
// daemon's own code and needs neither the daemon nor the bus nor root.

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "utils/Escape.h"
#include "utils/Split.h"
#include "verifycmds/Rules.h"

namespace {

using Velmar::Fault;
using Velmar::Rule;
using Velmar::Shape;
using Velmar::Verdict;
using Words = std::vector<std::string>;

enum ExitStatus { kAllAllowed = 0, kOneRefused = 1, kWrongUse = 2 };

constexpr std::string_view kUsage =
    "Usage: brimlet-check LINE       tell whether brimletd would run LINE, and if not, why not\n"
    "       brimlet-check            judge each line of standard input\n"
    "       brimlet-check --grammar  print every form that a line may have\n"
    "       brimlet-check --help | --version\n"
    "A LINE that begins with \"-\" has to follow \"--\".\n"
    "Exit status: 0 all lines are allowed, 1 one is refused, 2 wrong use.\n";

constexpr const char* kAnyForm = "PROGRAM OPTION-WORD [ARGUMENT...]";
constexpr std::size_t kMostShown = 80;  // bytes of a word

// A word in quotes. A byte outside ASCII is written in hexadecimal: no shape allows one, and it may
// look like nothing, or like a letter.
std::string Quote(std::string_view word) {
  constexpr std::string_view kHexDigits = "0123456789abcdef";
  std::string quoted = "\"";
  for (const char c : Velmar::Utils::EscapeControls(word.substr(0, kMostShown))) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      quoted += c;
    } else {
      quoted.append("\\x").append(1, kHexDigits[byte / 16]).append(1, kHexDigits[byte % 16]);
    }
  }
  return quoted + (word.size() > kMostShown ? "...\"" : "\"");
}

std::string GetForm(const Rule& rule) {
  std::string form(rule.program.empty() ? "PROGRAM" : rule.program);
  form.append(" ").append(rule.option);
  for (std::size_t i = 2; i < rule.maxWords; ++i) {
    const std::string name(rule.arguments[i - 2]->name);
    form += i < rule.minWords ? " " + name : " [" + name + "]";
  }
  return form;
}

char ToLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// How many letters have to be put in, taken out or changed to make `b` of `a`, whatever their case.
std::size_t GetDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);  // from the part of `a` so far to each start of `b`
  std::iota(row.begin(), row.end(), 0);
  for (const char c : a) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (ToLower(c) == ToLower(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

// The rule that a refused line should follow; null where its option word is missing or empty.
const Rule* FindRule(const Words& words, const Verdict& verdict) {
  if (verdict.fault != Fault::kUnknownOption || words[1].empty()) {
    return verdict.rule;
  }
  const auto distance = [start = words[1].substr(0, kMostShown)](const Rule& rule) {
    return GetDistance(start, rule.option);
  };
  return &*std::ranges::min_element(Velmar::GetRules(), {}, distance);
}

std::string ExplainCount(std::size_t count, const Rule& rule) {
  std::string reason = count < rule.minWords ? "too few words: " : "too many words: ";
  reason += std::to_string(count) + " instead of " + std::to_string(rule.minWords);
  return rule.maxWords == rule.minWords ? reason : reason + " or " + std::to_string(rule.maxWords);
}

std::string ExplainWord(const Words& words, std::size_t index, const std::string& fault) {
  return "word " + std::to_string(index) + ", " + Quote(words[index]) + ", is " + fault;
}

// Why a line is refused; `rule` is from FindRule().
std::string Explain(const Words& words, const Verdict& verdict, const Rule* rule) {
  if (verdict.fault == Fault::kNoOption) {
    return "too few words: " + std::to_string(words.size()) + " instead of at least 2";
  }
  if (rule == nullptr) {
    return "word 1 is empty: there are two blanks in a row";
  }
  if (verdict.fault == Fault::kUnknownOption) {
    return ExplainWord(words, 1, "no option word; the nearest is " + std::string(rule->option));
  }
  if (verdict.fault == Fault::kWordCount) {
    return ExplainCount(words.size(), *rule);
  }
  if (verdict.fault == Fault::kProgram) {
    return ExplainWord(words, 0, "not " + std::string(rule->program));
  }
  const Shape& shape = *rule->arguments[verdict.word - 2];
  const std::string no = shape.accepts.empty() ? "not " : "no ";  // a fixed word, or a kind
  return ExplainWord(words, verdict.word, no + std::string(shape.name));
}

// Prints the verdict on a line. True when it is allowed.
bool JudgeLine(const std::string& line, bool showsForm) {
  const Verdict verdict = Velmar::Judge(line);
  if (verdict.fault == Fault::kNone) {
    std::cout << "allowed\n";
    return true;
  }
  const Words words = Velmar::Utils::Split(line, " ");
  const Rule* const rule = FindRule(words, verdict);
  std::cout << "refused: " << Explain(words, verdict, rule) << '\n';
  if (showsForm) {
    std::cout << "  " << (rule == nullptr ? kAnyForm : GetForm(*rule)) << '\n';
  }
  return false;
}

bool JudgeInput() {
  bool areAllAllowed = true;
  std::string line;
  for (std::size_t number = 1; std::getline(std::cin, line); ++number) {
    std::cout << number << ": ";
    areAllAllowed = JudgeLine(line, false) && areAllAllowed;
  }
  return areAllAllowed;
}

// Prints a kind of argument; what it accepts goes into as many lines as are needed.
void PrintShape(const Shape& shape) {
  constexpr std::size_t kIndent = 18;
  constexpr std::size_t kWidth = 55;
  std::string text(shape.name);
  for (std::string_view rest = shape.accepts; !rest.empty();) {
    const std::size_t end = rest.size() <= kWidth ? rest.size() : rest.rfind(' ', kWidth);
    text.resize(kIndent, ' ');
    std::cout << text << rest.substr(0, end) << '\n';
    rest.remove_prefix(std::min(end + 1, rest.size()));
    text.clear();
  }
}

void PrintGrammar() {
  std::vector<const Shape*> shapes;
  for (const Rule& rule : Velmar::GetRules()) {
    std::cout << GetForm(rule) << '\n';
    for (const Shape* const shape : rule.arguments) {
      if (shape != nullptr && std::ranges::count(shapes, shape) == 0) {
        shapes.push_back(shape);
      }
    }
  }
  std::cout << '\n';
  std::ranges::for_each(shapes, [](const Shape* shape) { PrintShape(*shape); });
}

int Run(const Words& arguments) {
  if (arguments.empty()) {
    return JudgeInput() ? kAllAllowed : kOneRefused;
  }
  const std::string& first = arguments[0];
  if (arguments.size() == 2 && first == "--") {
    return JudgeLine(arguments[1], true) ? kAllAllowed : kOneRefused;
  }
  if (arguments.size() == 1 && !first.starts_with("-")) {
    return JudgeLine(first, true) ? kAllAllowed : kOneRefused;
  }
  if (arguments.size() == 1 && first == "--grammar") {
    PrintGrammar();
    return kAllAllowed;
  }
  if (arguments.size() == 1 && (first == "--help" || first == "--version")) {
    std::cout << (first == "--help" ? kUsage : "brimlet-check " BRIMLET_VERSION "\n");
    return kAllAllowed;
  }
  std::cerr << kUsage;
  return kWrongUse;
}

}  // namespace

int main(int argc, char** argv) {
  const int status = Run({argv + 1, argv + argc});
  if (!std::cout.flush() || std::ferror(stdin) != 0) {
    std::perror("brimlet-check");
    return kWrongUse;
  }
  return status;
}
