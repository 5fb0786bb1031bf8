#include "examples/web_browser/frame/plain_title.h"

#include "gtest/gtest.h"

namespace web_browser {
namespace {

TEST(PlainTitle, OrdinaryTextStays) {
  EXPECT_EQ("Ünïcödé 日本語 🙂 \"quoted\" \\",
            PlainTitle("Ünïcödé 日本語 🙂 \"quoted\" \\"));
  EXPECT_EQ("", PlainTitle(""));
}

TEST(PlainTitle, ControlCharactersAreLeftOut) {
  EXPECT_EQ("a[2Jbc", PlainTitle("a\x1b[2Jb\x7f"
                                 "c"));
  EXPECT_EQ("ab", PlainTitle("a\u0080\u009fb"));
}

TEST(PlainTitle, LineBreaksAndTabsBecomeSpaces) {
  EXPECT_EQ("a b c d e f g", PlainTitle("a\nb\tc\rd\u0085e\u2028f\u2029g"));
}

TEST(PlainTitle, CharactersThatDirectTheTextAreLeftOut) {
  EXPECT_EQ("ab", PlainTitle("a\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e"
                             "\u2066\u2067\u2068\u2069\ufeff"
                             "b"));
}

TEST(PlainTitle, BytesThatAreNotUtf8BecomeReplacementCharacters) {
  EXPECT_EQ("a\ufffdb", PlainTitle("a\xff"
                                   "b"));
  EXPECT_EQ("a\ufffd\ufffd", PlainTitle("a\xf0\x9f"));
}

TEST(PlainTitle, ZeroByteEndsNothing) {
  EXPECT_EQ("a\ufffdb", PlainTitle(std::string_view("a\0b", 3)));
}

TEST(PlainTitle, LongTextIsCutBetweenCharacters) {
  EXPECT_EQ(kMaxPlainTitleBytes, PlainTitle(std::string(1 << 20, 'x')).size());
  std::string euros = "x";
  while (euros.size() < 2 * kMaxPlainTitleBytes)
    euros += "€";
  const std::string cut = PlainTitle(euros);
  EXPECT_EQ(kMaxPlainTitleBytes, cut.size());
  EXPECT_EQ(euros.substr(0, kMaxPlainTitleBytes), cut);
}

}  // namespace
}  // namespace web_browser
