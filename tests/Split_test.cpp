#include "utils/Split.h"

#include <gtest/gtest.h>

TEST(Split, KeepsEmptyPiecesExceptBehindADelimiterThatEndsTheText) {
  using Pieces = std::vector<std::string>;
  const std::pair<std::string, Pieces> cases[] = {{"", {}},       {"::a::::b", {"", "a", "", "b"}},
                                                  {"a::", {"a"}}, {"a::::", {"a", ""}},
                                                  {"::", {""}},   {"a:::b", {"a", ":b"}}};
  for (const auto& [text, pieces] : cases)
    EXPECT_EQ(Velmar::Utils::Split(text, "::"), pieces) << text;
  EXPECT_EQ(Velmar::Utils::Split("a:b", ""), Pieces{"a:b"});
}
