// Text views of tasks, journal entries, appointments, contacts and lists; the
// named-property look-up and the mark-up reader behind them.
#include <cstring>

#include <gtest/gtest.h>

#include "content/item_markup.h"
#include "content/item_render.h"
#include "content/multi_values.h"
#include "store/byte_sink.h"
#include "tests/support/heap_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::Bag;
using test::Buf;
using test::Cat;
using test::LE;

constexpr std::uint16_t kText = 0x001F, kLong = 0x0003, kBool = 0x000B, kTime = 0x0040;
constexpr std::uint16_t kMultiText = 0x101F, kMultiBinary = 0x1102;
constexpr std::uint64_t kJan2024 = 133500000000000000ull;  // Wed 2024-01-17 21:20 UTC
constexpr std::uint64_t k1900 = 94354848000000000ull;      // 1900-01-01

Buf W(const char* text) {
  return test::Wide(text);
}
Buf A(const char* text) {
  return Buf(text, text + std::strlen(text));
}

// A list as the list reader takes it: count, an 8-byte entry (size, offset)
// a value, then the data.
Buf MultiBinary(const std::vector<Buf>& values) {
  Buf head = LE(values.size(), 4), data;
  for (const Buf& v : values) {
    head = Cat({head, LE(v.size(), 4), LE(4 + 8 * values.size() + data.size(), 4)});
    data.insert(data.end(), v.begin(), v.end());
  }
  return Cat({head, data});
}

// Count, 4-byte offsets, data: every multi-value string (and, as stored, binaries too).
Buf MultiValue(const std::vector<Buf>& values) {
  Buf head = LE(values.size(), 4), data;
  for (const Buf& v : values) {
    head = Cat({head, LE(4 + 4 * values.size() + data.size(), 4)});
    data.insert(data.end(), v.begin(), v.end());
  }
  return Cat({head, data});
}

Buf OneOff(const char* name, const char* type, const char* address, bool wide = true) {
  const Buf provider = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19, 0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};
  Buf out = Cat({LE(0, 4), provider, LE(0, 2), LE(wide ? 0x8001 : 0x0001, 2)});
  for (const char* text : {name, type, address}) out = Cat({out, wide ? Cat({W(text), {0, 0}}) : Cat({A(text), {0}})});
  return out;
}

// Local ids well away from the long ids, so a look-up that skips the map shows;
// of two entries for one long id the first wins.
const NameMap kMap = {
    {0x8104, 0x9001, "{task}"}, {0x811F, 0x9002, "{task}"}, {0x8127, 0x9003, "{task}"},  {0x8013, 0x9004, "{common}"},
    {0x8208, 0x9005, "{appt}"}, {0x8205, 0x9006, "{appt}"}, {0x8214, 0x9007, "{appt}"},  {0x8200, 0x9008, "{appt}"},
    {0x8206, 0x9009, "{appt}"}, {0x820A, 0x900A, "{appt}"}, {0x80A9, 0x900B, "{addr}"},  {0x8080, 0x900C, "{addr}"},
    {0x8054, 0x900D, "{addr}"}, {0x8706, 0x900E, "{log}"},  {0x8104, 0x90FF, "{later}"},
};

TEST(ClassifyItem, FirstMatchingClassTextDecides) {
  const std::pair<int, std::vector<const char*>> kinds[] = {
      {kKindContact, {"IPM.Contact", "IPM.Contact.DistList"}},
      {kKindDistList, {"ipm.distlist"}},
      {kKindTask, {"IPM.Task"}},
      {kKindJournal, {"IPM.Activity"}},
      {kKindStickyNote, {"IPM.StickyNote"}},
      {kKindAppointment, {"IPM.Appointment", "IPM.Schedule.Meeting.Request"}},
      {kKindMail, {"IPM.Post", "IPM.Note.Meeting", "REPORT.IPM.Note.NDR", ""}},
  };
  for (const auto& [kind, classes] : kinds) {
    for (const char* messageClass : classes) EXPECT_EQ(ClassifyItem(messageClass), kind) << messageClass;
  }
  EXPECT_EQ(ItemTypeText(10), "CALENDER");
  EXPECT_EQ(ItemTypeText(13), "CONTACT");
  EXPECT_EQ(ItemTypeText(12), "EMAIL");
}

// Empty values give no row; the save form keeps raw times, numbers and flags.
TEST(RenderItem, SaveAndPreviewForms) {
  struct Case {
    const char* what;
    int kind;
    PropertyBag bag;
    const char* save;
    const char* preview;  // nullptr: not checked
  };
  const Case cases[] = {
      {"task", kKindTask, Bag({{0x9001, kTime, LE(kJan2024, 8)}, {0x9002, kText, W("Ann")}, {0x9003, kText, {}}}),
       "<ITEM>START DATE : 133500000000000000</ITEM>\r\n<ITEM>TASK OWNER : Ann</ITEM>\r\n",
       "START DATE : Wed 01/17/2024 21:20 PM\r\nTASK OWNER : Ann\r\n"},
      // Plain tags reach the journal through the map; 1900 is no time.
      {"journal", kKindJournal, Bag({{0x3A16, kText, W("Acme")}, {0x900E, kTime, LE(k1900, 8)}}),
       "<ITEM>COMPANY : Acme</ITEM>\r\n", "COMPANY : Acme\r\n"},
      {"appointment", kKindAppointment,
       Bag({{0x9005, kText, W("Room 5")},
            {0x9006, kLong, LE(2, 4)},
            {0x9007, kLong, LE(1, 4)},
            {0x9008, kBool, LE(1, 4)},
            {0x9009, kBool, LE(0, 4)},
            {0x900A, kBool, {0x01}}}),
       "<ITEM>Location : Room 5</ITEM>\r\n<ITEM>Show As : 2</ITEM>\r\n<ITEM>LABEL : 1</ITEM>\r\n"
       "<ITEM>Send As ICAL Boolean : 1</ITEM>\r\n<ITEM>Forward Instance : 1</ITEM>\r\n"
       "Show As: Busy\r\nLABEL: Importent\r\n",
       "Location : Room 5\r\n"},
      {"numbers out of range: no tail", kKindAppointment, Bag({{0x9006, kLong, LE(4, 4)}, {0x9007, kLong, LE(11, 4)}}),
       "<ITEM>Show As : 4</ITEM>\r\n<ITEM>LABEL : 11</ITEM>\r\n", nullptr},
      {"absent numbers: no row and no tail", kKindAppointment, Bag({}), "", nullptr},
      // A contact lists no members, and its one number shows under two labels.
      {"contact", kKindContact,
       Bag({{0x001A, kText, W("IPM.Contact")},
            {0x900B, kText, {}},
            {0x900C, kText, W("Ann Lee")},
            {0x9004, kMultiText, MultiValue({W("VIP")})},
            {0x3A08, kText, W("555-1234")},
            {0x3A42, kTime, LE(kJan2024, 8)},
            {0x900D, kMultiBinary, MultiBinary({OneOff("B", "SMTP", "b@x")})}}),
       "<ITEM>EMAIL1 DISPLAY NAME : Ann Lee</ITEM>\r\n<ITEM>CATAGORIES : VIP</ITEM>\r\n"
       "<ITEM>BUSINESS TELEPHONE NUMBER : 555-1234</ITEM>\r\n"
       "<ITEM>OFFICE TELEPHONE NUMBER : 555-1234</ITEM>\r\n"
       "<ITEM>BIRTHDAY : 133500000000000000</ITEM>\r\n",
       "EMAIL1 DISPLAY NAME : Ann Lee\r\nCATAGORIES : VIP\r\nBUSINESS TELEPHONE NUMBER : "
       "555-1234\r\n"
       "OFFICE TELEPHONE NUMBER : 555-1234\r\nBIRTHDAY : Wed 01/17/2024 21:20 PM\r\n"},
      {"sticky note", kKindStickyNote, Bag({{0x9002, kText, W("x")}}), "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(RenderItem(c.kind, c.bag, kMap, RowKind::kSave, {}), c.save);
    if (c.preview) {
      EXPECT_EQ(RenderItem(c.kind, c.bag, kMap, RowKind::kPreview, {}), c.preview);
    }
  }
}

TEST(GetCategories, NamedValueThenAnyListNamingACategory) {
  EXPECT_EQ(GetCategories(Bag({{0x9004, kMultiText, MultiValue({W("Red"), {}, W("Blue")})}}), kMap), "Red;Blue");
  // Offsets 0x14 (kept), 0x400 (outside), 0x1A (kept), 0x16 (goes back).
  const Buf bad = Cat({LE(4, 4), LE(0x14, 4), LE(0x400, 4), LE(0x1A, 4), LE(0x16, 4), W("Red"), W("Gold")});
  EXPECT_EQ(GetCategories(Bag({{0x9004, kMultiText, bad}}), kMap), "Red;Gold");
  PropertyBag lost = Bag({{0x9004, kMultiText, LE(0, 4)},
                          {0x7001, 0x101E, MultiValue({A("Work"), A("Home")})},
                          {0x7002, 0x101E, MultiValue({A("Travel"), A("Green CATEGORY")})}});
  EXPECT_EQ(GetCategories(lost, kMap), "Travel;Green CATEGORY") << "taken whole, from the first that names one";
  EXPECT_EQ(GetCategories(Bag({{0x7001, 0x101E, MultiValue({A("Work"), A("Home")})}}), kMap), "");
}

TEST(ListMembers, OneOffEntriesFromTheFirstSlotThatHasThem) {
  const Buf wrapped = Cat({LE(0, 4), Buf(16, 0xC0), Buf(8, 0x11)});  // not a one-off: skipped
  const Buf members =
      MultiBinary({OneOff("Ann", "SMTP", "ann@x.org"), Buf(10, 0), wrapped, OneOff("Bob", "SMTP", "bob@x.org", false),
                   OneOff("Ann", "SMTP", "ann@x.org"), OneOff("", "SMTP", "nobody@x.org")});
  bool asked = false;
  const SubnodeBytes subnodes = [&] {
    asked = true;
    return std::vector<Buf>{Buf(40, 0xFF), MultiBinary({OneOff("Cy", "EX", "/o=x/cn=cy")})};
  };
  PropertyBag list = Bag({{0x001A, kText, W("IPM.DistList")}, {0x900D, kMultiBinary, members}});
  const std::string save = RenderItem(kKindDistList, list, kMap, RowKind::kSave, subnodes);
  EXPECT_EQ(save,
            "<ITEM>CONTACT DL ITEM :  Ann TYPE : SMTP EMAIL ID : ann@x.org</ITEM>\r\n"
            "<ITEM>CONTACT DL ITEM :  Bob TYPE : SMTP EMAIL ID : bob@x.org</ITEM>\r\n");
  EXPECT_FALSE(asked);
  EXPECT_EQ(ReadMarkup(save), save) << "the ' : ' inside a member's value stays in the value";

  // A fixed slot is tried before the mapped list; with neither, the subnodes are read.
  PropertyBag slot =
      Bag({{0x8100, kMultiBinary, MultiBinary({OneOff("Dan", "SMTP", "d@x")})}, {0x900D, kMultiBinary, members}});
  EXPECT_EQ(ListMembers(slot, kMap, subnodes), (std::vector<ListMember>{{"Dan", "SMTP", "d@x"}}));
  EXPECT_EQ(ListMembers(Bag({{0x8100, kText, W("no list")}}), kMap, subnodes),
            (std::vector<ListMember>{{"Cy", "EX", "/o=x/cn=cy"}}));
  EXPECT_TRUE(asked);
}

TEST(ReadMarkup, TimeRowsBecomeLocalTextAndTheRestIsKept) {
  EXPECT_EQ(ReadMarkup("<ITEM>START DATE : 133500000000000000</ITEM>\r\n"
                       "<ITEM>END TIME : 133500000000000000</ITEM>\r\n"
                       "<ITEM>Location : Hall : east</ITEM>\r\n"
                       "<ITEM>WEDDING_ANNIVERSARY : 94354848000000000</ITEM>\r\n"
                       "<ITEM>DUE DATE : soon</ITEM>\r\n"
                       "<ITEM>LAST UPDATED : 133500000000000000</ITEM>\r\nShow As: Busy\r\n"),
            "<ITEM>START DATE : Wed 01/17/2024 21:20 PM</ITEM>\r\n"
            "<ITEM>END TIME : Wed 01/17/2024 21:20 PM</ITEM>\r\n<ITEM>Location : Hall : east</ITEM>\r\n"
            "<ITEM>WEDDING_ANNIVERSARY : </ITEM>\r\n<ITEM>DUE DATE : </ITEM>\r\n"
            "<ITEM>LAST UPDATED : 133500000000000000</ITEM>\r\n");
  EXPECT_EQ(ReadMarkup("START TIME : Wed 01/17/2024 21:20 PM\r\n"), "") << "a preview has no rows";
}

// Every item of these stores with a view, against what pffexport's item dump
// (`pffexport -d -m items`) shows for it (tests/data/oracle/render_rows.tsv):
// how many items of each kind, rows our views must hold, and rows they must
// not. The list reader takes 8-byte entries where the store keeps 4-byte
// offsets, so of the three members of the lists it finds one slice, which
// starts at the second member, and shows that member alone.
TEST(RenderSamples, ViewsOfRealItems) {
  MARROW_REQUIRE_TESTDATA();
  std::map<std::string, std::vector<std::pair<std::string, std::string>>> samples;
  for (const auto& f : test::OracleRows("render_rows.tsv", 3)) samples[f[0]].emplace_back(f[1], f[2]);
  ASSERT_EQ(samples.size(), 9u) << "oracle data missing";
  for (const auto& [store, checks] : samples) {
    SCOPED_TRACE(store);
    auto owned = test::SampleReader(store, ::testing::TempDir());
    StoreReader& reader = *owned;
    reader.LoadNameMap();
    std::map<int, int> kinds;
    std::string all;
    for (const auto& [id, node] : test::MessageNodes(reader)) {
      SubnodeLists subnodes;
      PropertyBag bag;
      ASSERT_TRUE(test::ReadMessage(reader, node, subnodes, bag));
      const int kind = ClassifyItem(GetString(bag, 0x001A, false));
      const SubnodeBytes children = [&] {
        std::vector<Buf> out;
        for (const SubnodeRow& row : subnodes) {
          MemorySink sink;
          std::uint64_t childSubnodes = 0;
          reader.ReadSubnodeInto(row.nodeId, subnodes, sink, childSubnodes);
          out.push_back(sink.Data());
        }
        return out;
      };
      const std::string save = RenderItem(kind, bag, reader.NamedProperties(), RowKind::kSave, children);
      if (save.empty()) continue;
      ++kinds[kind];
      all += save;
      const std::string preview = RenderItem(kind, bag, reader.NamedProperties(), RowKind::kPreview, children);
      EXPECT_FALSE(preview.empty() || preview.find("<ITEM>") != std::string::npos) << preview;
    }
    std::string counts;
    for (const auto& [kind, n] : kinds)
      counts += (counts.empty() ? "" : " ") + std::to_string(kind) + ":" + std::to_string(n);
    for (const auto& [check, value] : checks) {
      if (check == "kinds") {
        EXPECT_EQ(counts, value);
      } else {
        EXPECT_EQ(all.find(value) != std::string::npos, check == "row") << check << " " << value;
      }
    }
  }
}

}  // namespace
}  // namespace marrow
