// Charset conversion of CkString bytes, and line ends.
#include <gtest/gtest.h>

#include "mail/ck_string.h"
#include "text/charset_convert.h"

namespace marrow {
namespace {

TEST(CkString, ConvertsBetweenCharsetsAndReplacesWhatDoesNotFit) {
  struct Case {
    const char* what;
    std::string in;
    const char *from, *to;
    std::string out;  // "refused": the conversion fails and leaves the bytes alone
  };
  const Case cases[] = {
      // "é€" both ways: the round trip our callers lean on.
      {"utf-8 to ansi", "\xC3\xA9\xE2\x82\xAC", "utf-8", "ansi", "\xE9\x80"},
      {"ansi to utf-8", "\xE9\x80", "ansi", "utf-8", "\xC3\xA9\xE2\x82\xAC"},
      {"names in any case", "\xE9", "ANSI", "UTF-8", "\xC3\xA9"},
      {"utf-16 is little-endian", "\xC3\xA9\xE2\x82\xAC", "utf-8", "utf-16", std::string("\xE9\x00\xAC\x20", 4)},
      {"unicode is utf-16", std::string("\xE9\x00\xAC\x20", 4), "unicode", "utf-8", "\xC3\xA9\xE2\x82\xAC"},
      {"Cyrillic has no ansi bytes", "\xD0\x9F\xD1\x80\xD0\xB8 ok", "utf-8", "ansi", "??? ok"},
      {"ansi holes decode to U+FFFD", "a\x81z", "ansi", "utf-8", "a\xEF\xBF\xBDz"},
      {"bad utf-8 becomes U+FFFD", "\xC3(x", "utf-8", "utf-8", "\xEF\xBF\xBD(x"},
      {"a sequence cut at the end", "a\xE2\x82", "utf-8", "utf-16", std::string("a\x00\xFD\xFF", 4)},
      {"a lone surrogate in utf-16",
       std::string("\x00\xD8"
                   "b\x00",
                   4),
       "utf-16", "utf-8",
       "\xEF\xBF\xBD"
       "b"},
      {"other iconv names", "\xC7\xE4", "koi8-r", "utf-8", "\xD0\xB3\xD0\x94"},
      {"empty stays empty", "", "utf-8", "ansi", ""},
      {"unknown charset", "abc", "utf-8", "no-such-charset", "refused"},
      {"no charset", "abc", "", "utf-8", "refused"},
  };
  for (const Case& c : cases) {
    CkString text(c.in);
    const bool refused = c.out == "refused";
    EXPECT_EQ(text.ConvertCharset(c.from, c.to), !refused) << c.what << ": " << text.LastErrorText();
    EXPECT_EQ(text.GetString(), refused ? c.in : c.out) << c.what;
  }
}

TEST(CharsetConvert, ExactConversionRefusesReplacements) {
  std::string out;
  EXPECT_TRUE(ConvertCharsetExact("caf\xC3\xA9", "utf-8", "iso-8859-1", &out));
  EXPECT_EQ(out, "caf\xE9");
  EXPECT_FALSE(ConvertCharsetExact("\xD0\x9F", "utf-8", "iso-8859-1", &out));
  EXPECT_TRUE(out.empty());
  EXPECT_FALSE(ConvertCharsetExact("\xC3", "utf-8", "utf-16", &out));
}

TEST(CharsetConvert, LineEndsGoBothWaysWithoutDoubling) {
  EXPECT_EQ(LineEndsToCrlf("a\nb\r\nc\rd\n"), "a\r\nb\r\nc\rd\r\n");
  EXPECT_EQ(LineEndsToCrlf("\n\n"), "\r\n\r\n");
  EXPECT_EQ(LineEndsToLf("a\r\nb\r\nc\rd\r"), "a\nb\nc\rd\r");
  EXPECT_EQ(LineEndsToLf(LineEndsToCrlf("x\ny\n")), "x\ny\n");
}

}  // namespace
}  // namespace marrow
