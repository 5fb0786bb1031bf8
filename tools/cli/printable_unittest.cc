#include "tools/cli/printable.h"

#include "gtest/gtest.h"

namespace cli {
namespace {

TEST(Printable, TextStaysAsItIs) {
  const std::string text =
      "Plain, \"quoted\", C:\\x1b, Gr\u00fc\u00dfe, \u6f22\u5b57, \U0001F600";
  EXPECT_EQ(text, Printable(text));
  EXPECT_EQ("", Printable(""));
}

TEST(Printable, ControlCharactersOfAsciiAreEscaped) {
  EXPECT_EQ(R"(\x1b[2J\x07\x0d\x0a\x09\x00\x1f\x7f )",
            Printable(std::string_view("\x1b[2J\x07\r\n\t\0\x1f\x7f ", 12)));
}

TEST(Printable, OtherControlCharactersAreEscaped) {
  EXPECT_EQ("\\u0080\\u009b31m\\u009f\u00a0",
            Printable("\u0080\u009b31m\u009f\u00a0"));
}

TEST(Printable, CharactersThatDirectTheTextAreEscaped) {
  EXPECT_EQ(R"(\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e)",
            Printable("\u061c\u200e\u200f\u202a\u202b\u202c\u202d\u202e"));
  EXPECT_EQ(R"(\u2066\u2067\u2068\u2069)",
            Printable("\u2066\u2067\u2068\u2069"));
}

TEST(Printable, SeparatorsAndTheByteOrderMarkAreEscaped) {
  EXPECT_EQ(R"(\u2028\u2029\ufeff)", Printable("\u2028\u2029\ufeff"));
}

TEST(Printable, NeighboursOfWhatIsEscapedStay) {
  const std::string text =
      "\u061b\u061d\u200d\u2010\u2027\u202f\u2065\u206a\ufefe\uff00";
  EXPECT_EQ(text, Printable(text));
}

TEST(Printable, BytesThatAreNoValidUtf8AreEscapedOneByOne) {
  const struct {
    std::string_view text;
    const char* printed;
  } cases[] = {
      {"a\xff"
       "b\x80",
       R"(a\xffb\x80)"},
      {"\xc3", R"(\xc3)"},                  // the second byte is missing
      {"\xe2\x80z", R"(\xe2\x80z)"},        // the third one is
      {"\xc0\xaf", R"(\xc0\xaf)"},          // a longer form than needed
      {"\xc1\xbf", R"(\xc1\xbf)"},          // the same
      {"\xe0\x9f\xbf", R"(\xe0\x9f\xbf)"},  // the same, of three bytes
      {"\xf0\x8f\xbf\xbf", R"(\xf0\x8f\xbf\xbf)"},  // the same, of four
      {"\xed\xa0\x80", R"(\xed\xa0\x80)"},          // a surrogate
      {"\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},  // beyond the last code
      {"\xf8\x88\x80\x80\x80", R"(\xf8\x88\x80\x80\x80)"},
  };
  for (const auto& [text, printed] : cases)
    EXPECT_EQ(printed, Printable(text));
}

TEST(Printable, FirstAndLastCharactersOfEachLengthAreValid) {
  const std::string text =
      "\u00a0\u07ff\u0800\ud7ff\ue000\uffff\U00010000\U0010ffff";
  EXPECT_EQ(text, Printable(text));
}

TEST(PrintableLines, OnlyLineBreaksStay) {
  EXPECT_EQ("one\ntwo\\x0d\n\\x1b\\u2028",
            PrintableLines("one\ntwo\r\n\x1b\u2028"));
}

TEST(Shorten, ATextOfTheGivenLengthStays) {
  EXPECT_EQ("0123456789", Shorten("0123456789", 10));
}

TEST(Shorten, ALongerTextLosesItsEndToAMark) {
  EXPECT_EQ("01234[...]", Shorten("0123456789A", 10));
}

TEST(Shorten, NoCharacterIsCut) {
  EXPECT_EQ("0123[...]", Shorten("0123\u00e4789ABC", 10));
  EXPECT_EQ("012[...]", Shorten("012\u6f22789ABC", 10));
  EXPECT_EQ("01[...]", Shorten("01\U0001F600789ABC", 10));
  EXPECT_EQ("012\u00e4[...]", Shorten("012\u00e4789ABC", 10));
}

TEST(Shorten, BytesThatAreNoUtf8AreCutAnywhere) {
  EXPECT_EQ("\x80\x80[...]", Shorten(std::string(11, '\x80'), 10));
}

TEST(IsUtf8, HoldsForWholeCharactersOnly) {
  for (const char* text : {"", "a\x1b", "\u00e4", "a\U0001F600\ufeff"})
    EXPECT_TRUE(IsUtf8(text)) << text;
  for (const char* text : {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\x80"})
    EXPECT_FALSE(IsUtf8(text)) << text;
}

}  // namespace
}  // namespace cli
