// Units of utils/ that need no bus. The test of the policy has the shapes that its words take, and
// client_test.py the calls.
#include <gtest/gtest.h>

#include "utils/BrimletdClient.h"
#include "utils/CommandOutput.h"
#include "utils/Split.h"
#include "utils/Validators.h"

using namespace Velmar::Utils;

TEST(Split, KeepsEmptyPiecesExceptBehindADelimiterThatEndsTheText) {
  using Pieces = std::vector<std::string>;
  const std::pair<std::string, Pieces> cases[] = {{"", {}},       {"::a::::b", {"", "a", "", "b"}},
                                                  {"a::", {"a"}}, {"a::::", {"a", ""}},
                                                  {"::", {""}},   {"a:::b", {"a", ":b"}}};
  for (const auto& [text, pieces] : cases) EXPECT_EQ(Split(text, "::"), pieces) << text;
  EXPECT_EQ(Split("a:b", ""), Pieces{"a:b"});
}

TEST(CommandOutput, IsCleanedAndNothingWhenTheCommandFails) {
  const std::pair<std::string, std::string> cases[] = {
      {"printf ' \\t a\\nb  \\n '", "\t a\nb"}, {"echo ' '", ""}, {"echo x; exit 1", ""},
      {"printf 'a\\0b\\nc\\n'", "ac"},          {"echo ./x", ""}, {"echo x; kill -9 $$", "x"}};
  for (const auto& [command, output] : cases) EXPECT_EQ(GetCmdOutput(command), output) << command;
  EXPECT_EQ(GetCmdOutput("printf %05000d 0").size() + GetUuid().size(), 5036);
}

TEST(Validators, TakeForANameUpTo64WordCharactersAndHyphens) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    EXPECT_EQ(IsValidName("n" + one), IsWord(one) || one == "-") << byte;
  }
  EXPECT_TRUE(IsValidName("") && IsValidName(std::string(64, 'n')));
  EXPECT_FALSE(IsValidName(std::string(65, 'n')));
}

TEST(BrimletdClient, KnowsItsFolderAndThatNoReplyHasNoSender) {
  EXPECT_EQ(mBrimletFilePath, "/opt/apps/com.tolvane.brimlet/files/orvix/");
  EXPECT_EQ(GetReplySenderPid(nullptr), -1);
}
