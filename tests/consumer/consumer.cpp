// Uses something of each part of the installed library. The library's own log lines have to get
// into the file that this program opens, so that both have one logger.
#include <brimlet/common/ErrorCode.h>
#include <brimlet/common/Logger.h>
#include <brimlet/common/RandomCode.h>
#include <brimlet/storage/FileOperator.h>
#include <brimlet/utils/BrimletdClient.h>
#include <brimlet/utils/Split.h>

#include <cstdlib>

int main(int argc, char** argv) {
  if (argc != 2) {
    return EXIT_FAILURE;
  }
  Velmar::Singleton<Velmar::Logger>::Instance()->Init(argv[1]);
  Velmar::LogInfo("CONSUMER", "consumer", "%s", Velmar::ErrorCode::GetLogText(0).c_str());
  Velmar::Utils::SetBrimletdPid(7);
  auto& files = Velmar::FileOperator::GetInstance();
  const int missing = files.GetFileSize("/nonexistent");  // logs
  std::vector<std::string> lines;
  files.ReadLines(argv[1], -1, 0, lines, "in");
  const bool isFine = missing == -1 && lines.size() == 2 && Velmar::g_brimletdPid == 7 &&
                      Velmar::RandomCode::GetRandomLetters(8).size() == 8 &&
                      Velmar::Utils::Split("a b", " ").size() == 2;
  return isFine ? EXIT_SUCCESS : EXIT_FAILURE;
}
