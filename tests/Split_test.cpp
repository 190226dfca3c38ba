#include "utils/Split.h"

#include <gtest/gtest.h>

#include "tests/Support.h"

namespace BrimletTest {
namespace {

TEST(Split, KeepsEmptyPiecesExceptBehindADelimiterThatEndsTheText) {
  const struct {
    const char* text;
    const char* delimiter;
    Lines pieces;
  } cases[] = {
      {"", ",", {}},
      {"abc", ",", {"abc"}},
      {"a,,b", ",", {"a", "", "b"}},
      {",a", ",", {"", "a"}},
      {"a,", ",", {"a"}},
      {"a,,", ",", {"a", ""}},
      {",", ",", {""}},
      {",,", ",", {"", ""}},
      {"a::b", "::", {"a", "b"}},
      {"a:::b", "::", {"a", ":b"}},
      {"x  --add", " ", {"x", "", "--add"}},
      {"x --add  ", " ", {"x", "--add", ""}},
      {"/home/u/Brimlet/log", "/", {"", "home", "u", "Brimlet", "log"}},
      {"/Brimlet/Orvix/others/", "/", {"", "Brimlet", "Orvix", "others"}},
      {"a,b", "", {"a,b"}},
      {"", "", {}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Velmar::Utils::Split(c.text, c.delimiter), c.pieces)
        << '"' << c.text << "\" at \"" << c.delimiter << '"';
  }
}

}  // namespace
}  // namespace BrimletTest
