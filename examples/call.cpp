// Makes one call with the client helper: call LOG PID LINE, where PID is the daemon's. Prints the
// status, the result and the error text. Calls that fail are told in the file LOG.
#include <clocale>
#include <cstdlib>
#include <iostream>
#include <string>

#include "common/Logger.h"
#include "common/Singleton.h"
#include "utils/BrimletdClient.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    return EXIT_FAILURE;
  }
  std::setlocale(LC_ALL, "");
  Velmar::Singleton<Velmar::Logger>::Instance()->Init(argv[1]);
  Velmar::Utils::SetBrimletdPid(std::stoi(argv[2]));
  std::string result = argv[3];  // the line may be the text for the result, too
  std::string error = "old";
  const int status = Velmar::Utils::ExecuteByBrimletd(result, result, error);
  std::cout << (status < 0 ? "failed" : "replied") << '\n' << result << '\n' << error << '\n';
}
