// Every top-level item of the sample stores against what pffexport writes for it
// (tests/data/oracle/items.tsv, made by make_items.sh).
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "content/property_values.h"
#include "content/rtf_body.h"
#include "mail/ck_string.h"
#include "store/store_reader.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

struct OracleItem {
  std::string subject, sender, submitTime, deliveryTime;
  std::string plainBytes, htmlBytes, rtfBytes;  // "-" when pffexport wrote no such file
};
// store -> message NodeId -> item.
using Oracle = std::map<std::string, std::map<std::uint32_t, OracleItem>>;

std::string Unescape(const std::string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\\' || i + 1 == s.size()) {
      out += s[i];
      continue;
    }
    const char c = s[++i];
    if (c == 't') out += '\t';
    else if (c == 'n') out += '\n';
    else if (c == 'r') out += '\r';
    else if (c == 'x' && i + 2 < s.size()) {
      out += static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else out += c;
  }
  return out;
}

Oracle LoadOracle() {
  Oracle oracle;
  std::ifstream in(std::string(MARROW_SOURCE_DIR) + "/tests/data/oracle/items.tsv");
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::vector<std::string> f;
    std::stringstream fields(line);
    for (std::string s; std::getline(fields, s, '\t');) f.push_back(s);
    if (f.size() != 9) continue;
    oracle[f[0]][static_cast<std::uint32_t>(std::stoul(f[1], nullptr, 16))] =
        OracleItem{Unescape(f[2]), Unescape(f[3]), f[4], f[5], f[6], f[7], f[8]};
  }
  return oracle;
}

// A FILETIME as pffexport prints it: "Mar 15, 2010 17:12:05.951519700 UTC"; "-" when absent.
std::string PffTime(const PropertyBag& bag, std::uint16_t id) {
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr || v->size != 8) return "-";
  const std::uint64_t ticks = GetU64(bag, id);
  constexpr std::int64_t kDaysFrom1601To1970 = 134774;
  const std::int64_t seconds = static_cast<std::int64_t>(ticks / 10000000);
  const std::int64_t days = seconds / 86400 - kDaysFrom1601To1970;
  const std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{days}}};
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
  if (v == nullptr) return 0;
  const std::vector<std::uint8_t> bytes = ValueBytes(*v);
  return bytes.size() >= 16 ? ReadU32(bytes, 4) : 0;
}

bool IsAppointment(const PropertyBag& bag) {
  return GetString(bag, 0x001A, false).rfind("IPM.Appointment", 0) == 0;
}

// Where our reader and pffexport disagree, and who is right.
struct SubjectVerdict {
  const char* store;
  std::uint32_t message;
  const char* ours;
  const char* why;
};
const SubjectVerdict kSubjectVerdicts[] = {
    // The subject starts 01 0A ("Updated: " is 9 characters, the byte is that
    // length plus one). pffexport drops the marker; GetString only knows the
    // lengths of RE:/FW:-style prefixes and keeps it. pffexport is right.
    {"pst/ansi/go-pst_32-bit.pst", 0x200024, "\x01\nUpdated: Olympus training for new hires", "marker 01 0A kept"},
};

class MessageOracle : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("marrow-items-" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  fs::path dir_;
};

TEST_F(MessageOracle, ItemsAgreeWithPffexport) {
  MARROW_REQUIRE_TESTDATA();
  const Oracle oracle = LoadOracle();
  ASSERT_GE(oracle.size(), 31u) << "oracle data missing";
  const std::string rtfPath = (dir_ / "body.rtf").string();
  std::size_t items = 0;
  for (const std::string& store : test::AllStores()) {
    SCOPED_TRACE(store);
    StoreReader reader(dir_.string());
    reader.OpenSource(std::make_unique<MemorySource>(test::ReadFileBytes(test::Sample(store))), store);
    std::map<std::uint32_t, NodeEntry> messages;
    VisitedSet pages;
    reader.ForEachNodeEntry(reader.nodeRootOffset, pages, [&](const NodeEntry& e) {
      if ((e.nodeId & kNodeTypeMask) == kNodeTypeMessage) messages.emplace(e.nodeId, e);
    });
    const auto want = oracle.find(store);
    if (want == oracle.end()) continue;  // pffexport exports nothing (empty stores, posts only)
    std::size_t lost = 0;
    for (const auto& [id, item] : want->second) {
      SCOPED_TRACE(::testing::Message() << "message 0x" << std::hex << id);
      const auto m = messages.find(id);
      ASSERT_NE(m, messages.end()) << "not a message node of ours";
      SubnodeLists subnodes;
      reader.ReadSubnodeList(m->second.subnodeBlock, subnodes);
      PropertyBag bag;
      ASSERT_TRUE(reader.ReadBagFromBlock(m->second.dataBlock, bag, subnodes));
      ++items;

      std::string subject = item.subject, why;
      for (const SubjectVerdict& v : kSubjectVerdicts) {
        if (store == v.store && id == v.message) subject = v.ours, why = v.why;
      }
      // pffexport reads every 8-bit text as windows-1252; we read it in the
      // code page the item names (hiraoka_contacts97-2002.pst: CP932 by its
      // locale 1041), so its bytes are taken back and read that way.
      auto asItemReads = [&bag](std::uint16_t id, const std::string& text) {
        const PropertyValue* v = bag.Find(id);
        if (v == nullptr || v->propType != 0x001E || TextCodePage(bag) == kDefaultCodePage) return text;
        CkString bytes(text);
        bytes.ConvertCharset("utf-8", "ansi");
        const std::string& raw = bytes.GetString();
        return CodePageToUtf8(reinterpret_cast<const std::uint8_t*>(raw.data()), raw.size(), TextCodePage(bag));
      };
      EXPECT_EQ(GetString(bag, 0x0037, true), asItemReads(0x0037, subject)) << why;
      EXPECT_EQ(bag.Find(0x0C1A) ? GetString(bag, 0x0C1A, false) : "-", asItemReads(0x0C1A, item.sender));
      EXPECT_EQ(PffTime(bag, 0x0039), item.submitTime);
      EXPECT_EQ(PffTime(bag, 0x0E06), item.deliveryTime);

      const PropertyValue* plain = bag.Find(0x1000);
      const PropertyValue* html = bag.Find(0x1013);
      const PropertyValue* rtf = bag.Find(0x1009);
      const bool written = item.plainBytes != "-" || item.htmlBytes != "-" || item.rtfBytes != "-";
      if ((item.plainBytes != "-" && item.plainBytes != "0" && plain == nullptr) ||
          (item.htmlBytes != "-" && html == nullptr) || (item.rtfBytes != "-" && rtf == nullptr)) {
        ++lost;
        continue;
      }
      // pffexport writes one body: plain text, else HTML, else RTF; an
      // appointment gets none, a contact without a body an empty Message.txt.
      if (!written) {
        EXPECT_TRUE(IsAppointment(bag) || (plain == nullptr && html == nullptr && rtf == nullptr));
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
    // Subnode rows whose 8-byte NodeId carries junk above its 32 bits once
    // hid 118 of these bodies; every body pffexport writes must be ours too.
    EXPECT_EQ(lost, 0u);
  }
  EXPECT_EQ(items, 785u) << "every item row of items.tsv";
}

}  // namespace
}  // namespace marrow
