#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/Line.h"
#include "benchmarks/Units.h"
#include "common/UniqueFd.h"
#include "storage/FileOperator.h"
#include "tests/Support.h"

namespace BrimletBench {
namespace {

using Lines = std::vector<std::string>;

Lines ReadLines(const std::string& path) {
  Lines lines;
  Velmar::FileOperator::GetInstance().ReadLines(path, -1, 0, lines, "in");
  return lines;
}

// Makes each line where it stays. Leaves out signals and read errors.
Lines LeastReadLines(const std::string& path) {
  const Velmar::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 65536> block;
  std::string begun;
  Lines lines;
  for (ssize_t got = 0; (got = read(fd.Get(), block.data(), block.size())) > 0;) {
    std::string_view rest(block.data(), static_cast<std::size_t>(got));
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
      if (!begun.empty()) {
        lines.push_back(begun.append(rest.substr(0, end)));
        begun.clear();
      } else if (end > 0) {
        lines.emplace_back(rest.substr(0, end));
      }
      rest.remove_prefix(end + 1);
    }
    begun.append(rest);
  }
  if (!begun.empty()) {
    lines.push_back(begun);
  }
  return lines;
}

}  // namespace

void AddFileOperator() {
  static const BrimletTest::TempFolder folder;
  const std::string path = folder / "lines";
  std::string content;
  for (int i = 0; content.size() < 1048576; ++i) {
    content.append(static_cast<std::size_t>(20 + i * 7 % 60), 'x')
        .append(i % 10 == 0 ? "\n\n" : "\n");
  }
  BrimletTest::WriteWhole(path, content);
  Require(ReadLines(path) == LeastReadLines(path), "ReadLines");
  Line("ReadLines, 1 MiB", Repeat(path, Direct<ReadLines>()))
      .Floor(1.1, Repeat(path, Direct<LeastReadLines>()));
}

}  // namespace BrimletBench
