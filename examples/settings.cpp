// A sample of what a program does with the rest of the library: it draws a password for its access
// point, wipes its own copy once that is in a configuration file, shows what the file says, and
// wipes the file in the end.
//
//   settings FOLDER
//
// Everything that it makes lies in FOLDER, its log included.

#include <array>
#include <cstdlib>
#include <iostream>
#include <string>

#include "common/ErrorCode.h"
#include "common/Logger.h"
#include "common/RandomCode.h"
#include "storage/FileOperator.h"
#include "storage/IniParser.h"

namespace {

constexpr std::size_t kPasswordLength = 16;

// False when no password could be drawn; the log tells why.
bool StorePassword(const std::string& file) {
  std::array<char, kPasswordLength + 1> password{};
  Velmar::RandomCode::GetRandomPasswd(password.data(), kPasswordLength);
  const bool isDrawn = password[0] != '\0';  // a failure leaves the buffer as it was
  if (isDrawn) {
    Velmar::IniParser().SetString(file, "ap", "password", password.data());
  }
  Velmar::RandomCode::ClearSensitiveData(password.data(), password.size());
  return isDrawn;
}

int Fail(const char* what, int code) {
  std::cerr << what << ": " << Velmar::ErrorCode::GetLogText(code) << '\n';
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: " << argv[0] << " FOLDER\n";
    return EXIT_FAILURE;
  }
  const std::string folder = argv[1];
  Velmar::Singleton<Velmar::Logger>::Instance()->Init(folder + "/settings.log");

  // A setter does not create a file, so it is there first: a comment, a section and a key.
  const std::string file = folder + "/cast.conf";
  const int written = Velmar::FileOperator::GetInstance().WriteFile(
      file, ";the access point\n[ap]\nchannel=36 ;5 GHz\n", 0, "out", 0600);
  if (written != Velmar::ErrorCode::CommonStatus::ACTION_SUCCESS) {
    return Fail("write the configuration", written);
  }
  if (!StorePassword(file)) {
    return Fail("draw a password", Velmar::ErrorCode::CommonStatus::GET_RANDOM_SEEDS_FAILED);
  }

  Velmar::IniParser settings;
  std::cout << "channel  " << settings.GetInt(file, "ap", "channel") << '\n'
            << "password " << settings.GetString(file, "ap", "password") << '\n';

  const int wiped = Velmar::RandomCode::SafeCoverData(file);
  if (wiped != Velmar::ErrorCode::CommonStatus::ACTION_SUCCESS) {
    return Fail("wipe the configuration", wiped);
  }
  std::cout << "wiped\n";
  return EXIT_SUCCESS;
}
