// Uses each part of the installed library, whose log lines have to get into the file opened here.
#include <brimlet/common/Logger.h>
#include <brimlet/common/RandomCode.h>
#include <brimlet/storage/FileOperator.h>
#include <brimlet/utils/BrimletdClient.h>

int main(int, char** argv) {
  static_assert(__cplusplus == 201703L, "the library asks for no newer C++");
  Velmar::Singleton<Velmar::Logger>::Instance()->Init(argv[1]);
  Velmar::Utils::SetBrimletdPid(7);
  auto& files = Velmar::FileOperator::GetInstance();
  files.GetFileSize("/nonexistent");  // logs
  std::vector<std::string> lines;
  files.ReadLines(argv[1], -1, 0, lines, "in");
  const auto letters = Velmar::RandomCode::GetRandomLetters(8);
  return lines.size() == 1 && Velmar::g_brimletdPid == 7 && letters.size() == 8 ? 0 : 1;
}
