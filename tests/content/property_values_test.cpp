// Getters, names and the display of property values.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "content/property_names.h"
#include "content/property_values.h"
#include "content/value_format.h"
#include "tests/support/heap_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::Bag;
using test::Buf;
using test::LE;

// UTF-16LE as the compiler encodes it, independent of the code under test.
Buf U16(const char16_t* text) {
  Buf out;
  for (const char16_t* p = text; *p; ++p) out.insert(out.end(), {std::uint8_t(*p), std::uint8_t(*p >> 8)});
  return out;
}

TEST(PropertyName, FirstNameOfAnIdWhateverItsType) {
  EXPECT_EQ(PropertyName(0x0001), "PR_ACKNOWLEDGEMENT_MODE");
  EXPECT_EQ(PropertyName(0x8CA0), "PR_EMS_AB_HAB_SENIORITY_INDEX");
  EXPECT_EQ(PropertyName(0xFFFB), "PR_EMS_AB_IS_MASTER") << "PR_ names sort before PidTag";
  // Ids with no tag name fall to the named properties' long ids as they stand.
  EXPECT_EQ(PropertyName(0x9000), "PidLidCategories");
  EXPECT_EQ(PropertyName(0x8005), "PR_EMS_AB_MANAGER") << "a tag name comes before a long id";
  EXPECT_EQ(PropertyName(0x6FFF), "0x00006FFF");
  EXPECT_STREQ(TypeName(0x1102), "Array of Binary data values");
  EXPECT_STREQ(TypeName(0x0008), "Unknown");
}

TEST(GetString, BothTextFormsAndTheSubjectMarker) {
  PropertyBag bag = Bag({{0x0037, 0x001F, U16(u"\x0001\x0010RE: Lunch")},
                         {0x0E1D, 0x001E, {'c', 'a', 'f', 0xE9}},
                         {0x3001, 0x001F, U16(u"Posta in arrivo \u00e8 \u65e5\U0001F600")},
                         {0x0E08, 0x0003, {1, 0, 0, 0}}});
  EXPECT_EQ(GetString(bag, 0x0037, true), "RE: Lunch");
  EXPECT_EQ(GetString(bag, 0x0037, false).substr(2), "RE: Lunch");
  EXPECT_EQ(GetString(bag, 0x0E1D, false), "caf\xC3\xA9") << "Windows-1252 by default";
  EXPECT_EQ(GetString(bag, 0x3001, false), "Posta in arrivo \xC3\xA8 \xE6\x97\xA5\xF0\x9F\x98\x80");
  EXPECT_EQ(GetString(bag, 0x0E08, false), "") << "a number is no text";
  EXPECT_EQ(GetString(bag, 0x9999, false), "");
  PropertyBag ansiMarked = Bag({{0x0037, 0x001E, {0x01, 0x05, 'F', 'W', ':', ' ', 'x'}}});
  EXPECT_EQ(GetString(ansiMarked, 0x0037, true), "FW: x");
}

// The code page of 8-bit text: the item's own, its locale's, its internet
// code page's script, what its item gave it, Windows-1252; in that order.
TEST(TextCodePage, OwnThenLocaleThenInternetThenGiven) {
  auto tags = [](std::uint32_t own, std::uint32_t locale, std::uint32_t internet) {
    PropertyBag bag;
    for (const auto& [id, value] : {std::pair{0x3FFD, own}, {0x3FF1, locale}, {0x3FDE, internet}}) {
      const Buf bytes = LE(value, 4);
      if (value) bag.Append(PropertyValue::InMemory(id, 0x0003, bytes.data(), bytes.size()));
    }
    return bag;
  };
  struct Case {
    const char* what;
    PropertyBag bag;
    unsigned given, want;
  };
  Case cases[] = {
      {"nothing named", tags(0, 0, 0), 0, 1252},
      {"own code page", tags(1251, 1041, 0), 0, 1251},
      {"own names Unicode: the locale's", tags(65001, 1049, 0), 0, 1251},
      {"Japanese locale", tags(0, 1041, 1252), 0, 932},
      {"Chinese (Taiwan) locale", tags(0, 0x0404, 0), 0, 950},
      {"Chinese (PRC) locale", tags(0, 0x0804, 0), 0, 936},
      {"Serbian (Cyrillic) locale", tags(0, 0x0C1A, 0), 0, 1251},
      {"English locale, ISO-2022-JP mail", tags(0, 1033, 50220), 0, 932},
      {"KOI8-R mail", tags(0, 0, 20866), 0, 1251},
      {"UTF-8 mail, given by the item", tags(0, 0, 65001), 936, 936},
      {"own beats given", tags(1250, 0, 0), 932, 1250},
  };
  for (Case& c : cases) {
    c.bag.textCodePage = c.given;
    EXPECT_EQ(TextCodePage(c.bag), c.want) << c.what;
  }
  PropertyBag contact = tags(0, 1041, 0);
  const Buf sjis = {0x93, 0xFA, 0x96, 0x7B};  // "日本" in CP932
  contact.Append(PropertyValue::InMemory(0x0037, 0x001E, sjis.data(), sjis.size()));
  EXPECT_EQ(GetString(contact, 0x0037, false), "日本") << "read in the locale's code page";
  EXPECT_EQ(GetString(contact, 0x0037, false, 1252), "\xE2\x80\x9C\xC3\xBA\xE2\x80\x93{")
      << "a code page asked for wins";
}

TEST(GetString, SpilledValueIsReadFromItsFile) {
  const std::string path =
      (std::filesystem::temp_directory_path() / ("marrow-spill-" + std::to_string(::getpid()) + ".Bin")).string();
  const Buf body = U16(u"a body kept on disk");
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(body.data()), body.size());
  {
    PropertyBag bag;
    bag.Append(PropertyValue::Spilled(0x1000, 0x001F, path, static_cast<std::uint32_t>(body.size())));
    EXPECT_EQ(GetString(bag, 0x1000, false), "a body kept on disk");
    std::uint64_t size = 0;
    bool unicode = false;
    EXPECT_EQ(WriteValueToFile(bag, 0x1000, "/nonexistent/x", size, unicode), path) << "no copy of a spill file";
    EXPECT_TRUE(unicode);
    EXPECT_EQ(size, body.size());
  }
  EXPECT_FALSE(std::filesystem::exists(path)) << "the bag owned the spill file";
}

TEST(Getters, NumbersAndDates) {
  PropertyBag bag = Bag({{0x0E08, 0x0003, {0x10, 0x27, 0, 0}},
                         {0x0E07, 0x0014, {0xFF, 0xFF, 0xFF, 0xFF}},
                         {0x0039, 0x0040, LE(133500000000000000ull, 8)},
                         {0x0E06, 0x0040, LE(0, 8)},
                         {0x3007, 0x0040, LE(94354848000000000ull, 8)}});  // 1900-01-01
  EXPECT_EQ(GetU32(bag, 0x0E08), 10000u);
  EXPECT_EQ(GetU64(bag, 0x0E07), 0xFFFFFFFFu) << "a 4-byte value is widened";
  EXPECT_EQ(GetU32(bag, 0x0039), 0u) << "an 8-byte value is no 32-bit number";
  EXPECT_EQ(GetDateText(bag, 0x0039, false), "Wed 01/17/2024 21:20 PM") << "24-hour clock and AM/PM";
  EXPECT_EQ(GetDateText(bag, 0x0039, true), "133500000000000000");
  EXPECT_EQ(GetDateText(bag, 0x0E06, false), "");
  EXPECT_EQ(GetDateText(bag, 0x3007, false), "") << "1900 or earlier is no date";
}

TEST(FormatValue, ByType) {
  Buf seventeen(17), big(2000, 0xAB);
  for (int i = 0; i < 17; ++i) seventeen[i] = static_cast<std::uint8_t>(i);
  PropertyBag bag = Bag({{0x0E08, 0x0003, {0xFF, 0xFF, 0xFF, 0xFF}},
                         {0x3FDE, 0x0002, {0x07, 0, 0, 0}},
                         {0x0E07, 0x0014, {0x2A, 0, 0, 0}},
                         {0x0FFE, 0x0004, {0x00, 0x00, 0x80, 0x3F}},
                         {0x0039, 0x0040, LE(133500000000000000ull, 8)},
                         {0x0E06, 0x0040, LE(0, 8)},
                         {0x0037, 0x001F, U16(u"\x0001\x0010Hi")},
                         {0x0E1B, 0x000B, {1, 0, 0, 0}},
                         {0x0FFF, 0x0102, {0xDE, 0xAD}},
                         {0x0FFD, 0x0102, seventeen},
                         {0x0FFC, 0x0102, big}});
  EXPECT_EQ(FormatValue(bag, 0x0E08, 0x0003), "-1");
  EXPECT_EQ(FormatValue(bag, 0x3FDE, 0x0002), "0") << "16-bit values are stored 4 bytes wide";
  EXPECT_EQ(FormatValue(bag, 0x0E07, 0x0014), "00042");
  EXPECT_EQ(FormatValue(bag, 0x0FFE, 0x0004), "1065353216.000000") << "raw bits, not a float";
  EXPECT_EQ(FormatValue(bag, 0x0039, 0x0040), "1/17/2024 9:20:00 PM");
  EXPECT_EQ(FormatValue(bag, 0x0E06, 0x0040), "");
  EXPECT_EQ(FormatValue(bag, 0x0037, 0x001F).substr(2), "Hi") << "no marker stripping";
  EXPECT_EQ(FormatValue(bag, 0x0E1B, 0x000B), "");
  EXPECT_EQ(FormatValue(bag, 0x0FFF, 0x0102), "DE \r\nAD ");
  EXPECT_EQ(FormatValue(bag, 0x0E08, 0x1003), "FF \r\nFF FF FF ") << "arrays show as bytes";
  EXPECT_EQ(FormatBinary(*bag.Find(0x0FFD)), "00 \r\n01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 \r\n");
  const std::string shown = FormatBinary(*bag.Find(0x0FFC));
  EXPECT_EQ(std::count(shown.begin(), shown.end(), 'A'), 1001) << "bytes 0 to 1000";
  EXPECT_EQ(FormatTag(0x0037, 0x001F), "0x0037001F");
}

}  // namespace
}  // namespace marrow
