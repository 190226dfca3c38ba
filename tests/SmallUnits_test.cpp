// The small units of common/ and utils/. The test of the policy has the other validators.
#include "common/BoundsChecked.h"
#include "common/ErrorCode.h"
#include "tests/FolderTest.h"
#include "utils/CommandOutput.h"
#include "utils/Split.h"
#include "utils/Validators.h"

using namespace Velmar;
using namespace Velmar::Utils;
using SmallUnits = FolderTest;

TEST_F(SmallUnits, DoAllThatFitsOrNothingAndTellWhich) {
  const std::string start("ab\0defgh", 8);
  for (std::size_t i = 0; i < 90; ++i) {
    const std::size_t max = i % 9, count = i / 9;
    const std::string word(count, 'x');
    const auto expect = [&](std::size_t at, std::size_t size, auto call) {
      std::string to = start, after = start;
      EXPECT_EQ(call(to.data()), at + size <= max ? 0 : ERANGE) << count << " in " << max;
      EXPECT_EQ(to, at + size <= max ? after.replace(at, size, word.c_str(), size) : start);
    };
    expect(0, count, [&](char* to) { return memcpy_s(to, max, word.data(), count); });
    expect(0, count, [&](char* to) { return memset_s(to, max, 0x100 + 'x', count); });
    expect(2, count + 1, [&](char* to) { return strcat_s(to, max, word.c_str()); });
    const int length = count < max && count <= 5 ? static_cast<int>(count) : -1;
    std::string to = start;
    EXPECT_EQ(snprintf_s(to.data(), max, 5, "%s", word.c_str()), length) << count << " in " << max;
    EXPECT_EQ(to.c_str(), length >= 0 ? word : max > 0 ? "" : "ab");
    EXPECT_EQ(to.substr(max), start.substr(max));
  }
  char text[] = "abc";
  static char* null;  // the compiler and the analysers do not know its value
  EXPECT_EQ(memcpy_s(text + 1, 2, text, 2), 0);  // they overlap
  EXPECT_EQ(memcpy_s(null, 1, text, 1) + memcpy_s(text, 1, null, 1), 2 * EINVAL);
  EXPECT_EQ(strcat_s(null, 1, "") + strcat_s(text, 4, null) + memset_s(null, 1, 0, 1), 3 * EINVAL);
  EXPECT_EQ(snprintf_s(null, 1, 1, "%s", text) + snprintf_s(text + 3, 1, 1, null, 0), -2);
  EXPECT_STREQ(text, "aab");
}

TEST_F(SmallUnits, GiveEachCodeItsMessage) {
  std::ofstream list(folder / "list");
  for (int code = -1; code <= 2000; ++code)
    list << code << "; " << ErrorCode::GetLogText(code) << std::endl;
  Run("grep -v 'Unknown error' list | cksum | grep -qx '962537759 3590'");
}

TEST_F(SmallUnits, KeepEmptyPiecesExceptBehindADelimiterThatEndsTheText) {
  const std::pair<std::string, Texts> cases[] = {{"", {}},       {"::a::::b", {"", "a", "", "b"}},
                                                 {"a::", {"a"}}, {"a::::", {"a", ""}},
                                                 {"::", {""}},   {"a:::b", {"a", ":b"}}};
  for (const auto& [text, pieces] : cases) EXPECT_EQ(Split(text, "::"), pieces) << text;
  EXPECT_EQ(Split("a:b", ""), Texts{"a:b"});
}

TEST_F(SmallUnits, GiveWhatACommandPrintsCleanedAndNothingWhenItFails) {
  const std::pair<std::string, std::string> cases[] = {
      {"printf ' \\t a\\nb  \\n '", "\t a\nb"}, {"echo ' '", ""}, {"echo x; exit 1", ""},
      {"printf 'a\\0b\\nc\\n'", "ac"},          {"echo ./x", ""}, {"echo x; kill -9 $$", "x"}};
  for (const auto& [command, output] : cases) EXPECT_EQ(GetCmdOutput(command), output) << command;
  EXPECT_EQ(GetCmdOutput("printf %05000d 0").size() + GetUuid().size(), 5036);
}

TEST_F(SmallUnits, TakeForANameUpTo64WordCharactersAndHyphens) {
  const std::string n63(63, 'n');
  for (const std::string& name : {std::string(), "-_aZ09" + n63.substr(5), n63 + "n"})
    EXPECT_TRUE(IsValidName(name)) << name;
  for (const std::string& name : {n63 + "nn", n63 + ".", " " + n63, n63 + "\xe9"})
    EXPECT_FALSE(IsValidName(name)) << name;
}
