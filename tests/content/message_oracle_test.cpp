// Every top-level item of the sample stores against what pffexport writes for
// it (tests/data/oracle/items.tsv).
#include <chrono>
#include <cstdio>

#include <gtest/gtest.h>

#include "content/property_values.h"
#include "content/rtf_body.h"
#include "tests/support/test_data.h"
#include "text/charset_convert.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

// A FILETIME as pffexport prints it: "Mar 15, 2010 17:12:05.951519700 UTC"; "-" when absent.
std::string PffTime(const PropertyBag& bag, std::uint16_t id) {
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr || v->size != 8) return "-";
  const std::uint64_t ticks = GetU64(bag, id);
  constexpr std::int64_t kDaysFrom1601To1970 = 134774;
  const std::int64_t seconds = static_cast<std::int64_t>(ticks / 10000000);
  const std::chrono::year_month_day date{
      std::chrono::sys_days{std::chrono::days{seconds / 86400 - kDaysFrom1601To1970}}};
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::int64_t s = seconds % 86400;
  char text[64];
  std::snprintf(text, sizeof text, "%s %02u, %d %02d:%02d:%02d.%09llu UTC", kMonths[unsigned(date.month()) - 1],
                unsigned(date.day()), int(date.year()), int(s / 3600), int(s / 60 % 60), int(s % 60),
                static_cast<unsigned long long>(ticks % 10000000 * 100));
  return text;
}

// The uncompressed size a compressed RTF value declares in its header; 0 when too short.
std::uint64_t RtfRawSize(const PropertyValue* v) {
  const std::vector<std::uint8_t> bytes = v ? ValueBytes(*v) : std::vector<std::uint8_t>{};
  return bytes.size() >= 16 ? ReadU32(bytes, 4) : 0;
}

// Where we differ from pffexport on a subject: the subject starts 01 0A, a
// marker of "Updated: " (9 characters, plus one); GetString only knows the
// lengths of RE:/FW:-style prefixes and keeps it. pffexport is right.
struct SubjectVerdict {
  const char* store;
  std::uint32_t message;
  const char* ours;
};
const SubjectVerdict kSubjectVerdicts[] = {
    {"pst/ansi/go-pst_32-bit.pst", 0x200024, "\x01\nUpdated: Olympus training for new hires"},
};

class MessageOracle : public test::ScratchDir {};

TEST_F(MessageOracle, ItemsAgreeWithPffexport) {
  MARROW_REQUIRE_TESTDATA();
  struct OracleItem {
    std::string subject, sender, submitTime, deliveryTime;
    std::string plainBytes, htmlBytes, rtfBytes;  // "-" when pffexport wrote no such file
  };
  std::map<std::string, std::map<std::uint32_t, OracleItem>> oracle;
  for (const auto& f : test::OracleRows("items.tsv", 9))
    oracle[f[0]][static_cast<std::uint32_t>(std::stoul(f[1], nullptr, 16))] =
        OracleItem{f[2], f[3], f[4], f[5], f[6], f[7], f[8]};
  ASSERT_GE(oracle.size(), 31u) << "oracle data missing";
  const std::string rtfPath = Path("body.rtf");
  std::size_t items = 0;
  for (const auto& [store, wanted] : oracle) {
    SCOPED_TRACE(store);
    auto owned = test::SampleReader(store, Dir().string());
    StoreReader& reader = *owned;
    const auto messages = test::MessageNodes(reader);
    std::size_t lost = 0;
    for (const auto& [id, item] : wanted) {
      SCOPED_TRACE(::testing::Message() << "message 0x" << std::hex << id);
      const auto m = messages.find(id);
      ASSERT_NE(m, messages.end()) << "not a message node of ours";
      SubnodeLists subnodes;
      PropertyBag bag;
      ASSERT_TRUE(test::ReadMessage(reader, m->second, subnodes, bag));
      ++items;

      std::string subject = item.subject;
      for (const SubjectVerdict& v : kSubjectVerdicts) {
        if (store == v.store && id == v.message) subject = v.ours;
      }
      // pffexport reads every 8-bit text as windows-1252, we in the code page
      // the item names (hiraoka_contacts97-2002.pst: CP932 by its locale
      // 1041); so its text is turned back into bytes and read our way.
      auto asItemReads = [&bag](std::uint16_t tag, const std::string& text) {
        const PropertyValue* v = bag.Find(tag);
        if (v == nullptr || v->propType != 0x001E || TextCodePage(bag) == kDefaultCodePage) return text;
        std::string raw;
        ConvertCharsetLossy(text, "utf-8", "ansi", &raw);
        return CodePageToUtf8(reinterpret_cast<const std::uint8_t*>(raw.data()), raw.size(), TextCodePage(bag));
      };
      EXPECT_EQ(GetString(bag, 0x0037, true), asItemReads(0x0037, subject));
      EXPECT_EQ(bag.Find(0x0C1A) ? GetString(bag, 0x0C1A, false) : "-", asItemReads(0x0C1A, item.sender));
      EXPECT_EQ(PffTime(bag, 0x0039), item.submitTime);
      EXPECT_EQ(PffTime(bag, 0x0E06), item.deliveryTime);

      // pffexport writes one body: plain text, else HTML, else RTF; an
      // appointment gets none, a contact without a body an empty Message.txt.
      const PropertyValue* plain = bag.Find(0x1000);
      const PropertyValue* html = bag.Find(0x1013);
      const PropertyValue* rtf = bag.Find(0x1009);
      if ((item.plainBytes != "-" && item.plainBytes != "0" && plain == nullptr) ||
          (item.htmlBytes != "-" && html == nullptr) || (item.rtfBytes != "-" && rtf == nullptr)) {
        ++lost;
        continue;
      }
      if (item.plainBytes == "-" && item.htmlBytes == "-" && item.rtfBytes == "-") {
        EXPECT_TRUE(GetString(bag, 0x001A, false).starts_with("IPM.Appointment") ||
                    (plain == nullptr && html == nullptr && rtf == nullptr));
      }
      if (item.plainBytes != "-") {
        // Message.txt is the body as UTF-8, as GetString gives it.
        EXPECT_EQ(plain ? std::to_string(GetString(bag, 0x1000, false).size()) : "0", item.plainBytes);
      }
      if (item.htmlBytes != "-") {
        EXPECT_EQ(plain, nullptr);
        EXPECT_EQ(std::to_string(html->size), item.htmlBytes);
      }
      if (item.rtfBytes != "-") {
        EXPECT_EQ(plain, nullptr);
        EXPECT_EQ(html, nullptr);
        // pffexport writes the declared size and a NUL; we stop short of it
        // (up to 18 bytes in these samples) and close with "}}".
        EXPECT_EQ(std::to_string(RtfRawSize(rtf) + 1), item.rtfBytes);
        ASSERT_TRUE(WriteRtfBody(bag, rtfPath)) << "pffexport writes this RTF body";
        EXPECT_LE(fs::file_size(rtfPath), RtfRawSize(rtf) + 1);
      }
    }
    // Subnode NodeIds with junk above their 32 bits once hid 118 of these bodies.
    EXPECT_EQ(lost, 0u);
  }
  EXPECT_EQ(items, 785u) << "every item row of items.tsv";
}

}  // namespace
}  // namespace marrow
