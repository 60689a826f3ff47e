// Text views of tasks, journal entries, appointments, contacts and lists; the
// named-property look-up and the mark-up reader behind them.
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>

#include <gtest/gtest.h>

#include "content/item_render.h"
#include "content/property_values.h"
#include "store/byte_sink.h"
#include "store/store_reader.h"
#include "tests/support/heap_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;
using test::Cat;
using test::LE;

constexpr std::uint16_t kText = 0x001F;
constexpr std::uint16_t kLong = 0x0003;
constexpr std::uint16_t kBool = 0x000B;
constexpr std::uint16_t kTime = 0x0040;
constexpr std::uint16_t kMultiBinary = 0x1102;
constexpr std::uint64_t kJan2024 = 133500000000000000ull;  // Wed 2024-01-17 21:20 UTC
constexpr std::uint64_t k1900 = 94354848000000000ull;      // 1900-01-01

class UtcZone : public ::testing::Environment {
 public:
  void SetUp() override {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }
};
const auto* const kUtcZone = ::testing::AddGlobalTestEnvironment(new UtcZone);

PropertyBag Bag(std::initializer_list<std::tuple<std::uint16_t, std::uint16_t, Buf>> values) {
  PropertyBag bag;
  for (const auto& [id, type, bytes] : values)
    bag.Append(PropertyValue::InMemory(id, type, bytes.data(), bytes.size()));
  return bag;
}

Buf W(const char* text) {
  return test::Wide(text);
}

// A list as the list reader takes it: count, then an 8-byte entry (size,
// offset) a value, then the data.
Buf MultiBinary(const std::vector<Buf>& values) {
  Buf head = LE(values.size(), 4), data;
  for (const Buf& v : values) {
    head = Cat({head, LE(v.size(), 4), LE(4 + 8 * values.size() + data.size(), 4)});
    data.insert(data.end(), v.begin(), v.end());
  }
  return Cat({head, data});
}

// Count, offsets, data: the layout of every multi-value string (and, as
// stored, of binaries too).
Buf MultiValue(const std::vector<Buf>& values) {
  Buf head = LE(values.size(), 4), data;
  for (const Buf& v : values) {
    head = Cat({head, LE(4 + 4 * values.size() + data.size(), 4)});
    data.insert(data.end(), v.begin(), v.end());
  }
  return Cat({head, data});
}

Buf OneOff(const char* name, const char* type, const char* address, bool wide = true) {
  const Buf provider = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19,
                        0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};
  Buf out = Cat({LE(0, 4), provider, LE(0, 2), LE(wide ? 0x8001 : 0x0001, 2)});
  for (const char* text : {name, type, address}) {
    const Buf bytes =
        wide ? Cat({W(text), {0, 0}}) : Cat({Buf(text, text + std::strlen(text)), {0}});
    out.insert(out.end(), bytes.begin(), bytes.end());
  }
  return out;
}

// Local ids well away from the long ids, so a look-up that skips the map shows.
const NameMap kMap = {
    {0x8104, 0x9001, "{task}"},   {0x811F, 0x9002, "{task}"}, {0x8127, 0x9003, "{task}"},
    {0x8013, 0x9004, "{common}"}, {0x8208, 0x9005, "{appt}"}, {0x8205, 0x9006, "{appt}"},
    {0x8214, 0x9007, "{appt}"},   {0x8200, 0x9008, "{appt}"}, {0x8206, 0x9009, "{appt}"},
    {0x820A, 0x900A, "{appt}"},   {0x80A9, 0x900B, "{addr}"}, {0x8080, 0x900C, "{addr}"},
    {0x8054, 0x900D, "{addr}"},   {0x8706, 0x900E, "{log}"},  {0x8104, 0x90FF, "{later}"},
};

TEST(NamedLookup, FirstEntryWinsAndUnmappedIdsStandForThemselves) {
  EXPECT_EQ(LocalIdFor(kMap, 0x8104), 0x9001) << "the first of two entries";
  EXPECT_EQ(LocalIdFor(kMap, 0x3A16), 0x3A16);
  EXPECT_EQ(LocalIdFor(kMap, 0x18013), 0x8013) << "cut to the low 16 bits, not matched to 0x8013";
  std::string guid = "stale";
  EXPECT_EQ(LongIdFor(kMap, 0x900D, &guid), 0x8054u);
  EXPECT_EQ(guid, "{addr}");
  EXPECT_EQ(LongIdFor(kMap, 0x8500, &guid), 0x8500u);
  EXPECT_EQ(guid, "");
  PropertyBag bag = Bag({{0x811F, kText, W("raw slot")}, {0x9002, kText, W("Ann")}});
  EXPECT_EQ(GetNamedString(bag, kMap, 0x811F), "Ann");
  EXPECT_EQ(FindNamed(bag, kMap, 0x8121), nullptr);
}

TEST(ClassifyItem, FirstMatchingClassTextDecides) {
  const std::pair<const char*, int> cases[] = {{"IPM.Contact", 11},
                                               {"ipm.distlist", 13},
                                               {"IPM.Task", 9},
                                               {"IPM.Activity", 8},
                                               {"IPM.StickyNote", 12},
                                               {"IPM.Appointment", 10},
                                               {"IPM.Schedule.Meeting.Request", 10},
                                               {"IPM.Note.Meeting", 0},
                                               {"REPORT.IPM.Note.NDR", 0},
                                               {"IPM.Post", 0},
                                               {"IPM.Contact.DistList", 11},
                                               {"", 0}};
  for (const auto& [messageClass, kind] : cases)
    EXPECT_EQ(ClassifyItem(messageClass), kind) << messageClass;
  EXPECT_EQ(ItemTypeText(10), "CALENDER");
  EXPECT_EQ(ItemTypeText(13), "CONTACT");
  EXPECT_EQ(ItemTypeText(12), "EMAIL");
  EXPECT_EQ(RenderItem(kKindStickyNote, Bag({{0x9002, kText, W("x")}}), kMap, RowKind::kSave, {}),
            "");
}

TEST(RenderRows, SaveAndPreviewFormsSkipEmptyValues) {
  PropertyBag task =
      Bag({{0x9001, kTime, LE(kJan2024, 8)}, {0x9002, kText, W("Ann")}, {0x9003, kText, {}}});
  const std::string save = RenderTask(task, kMap, RowKind::kSave);
  EXPECT_EQ(save,
            "<ITEM>START DATE : 133500000000000000</ITEM>\r\n<ITEM>TASK OWNER : Ann</ITEM>\r\n");
  EXPECT_EQ(RenderTask(task, kMap, RowKind::kPreview),
            "START DATE : Wed 01/17/2024 21:20 PM\r\nTASK OWNER : Ann\r\n");
  EXPECT_EQ(
      ReadMarkup(save),
      "<ITEM>START DATE : Wed 01/17/2024 21:20 PM</ITEM>\r\n<ITEM>TASK OWNER : Ann</ITEM>\r\n");

  // Plain tags reach the journal through the map and come back unchanged.
  PropertyBag journal = Bag({{0x3A16, kText, W("Acme")}, {0x900E, kTime, LE(k1900, 8)}});
  EXPECT_EQ(RenderJournal(journal, kMap, RowKind::kPreview), "COMPANY : Acme\r\n")
      << "1900 is no time";
}

TEST(RenderAppointment, NumbersFlagsAndTailOnlyInSaveForm) {
  PropertyBag bag = Bag({{0x9005, kText, W("Room 5")},
                         {0x9006, kLong, LE(2, 4)},
                         {0x9007, kLong, LE(1, 4)},
                         {0x9008, kBool, LE(1, 4)},
                         {0x9009, kBool, LE(0, 4)},
                         {0x900A, kBool, {0x01}}});
  EXPECT_EQ(
      RenderAppointment(bag, kMap, RowKind::kSave),
      "<ITEM>Location : Room 5</ITEM>\r\n<ITEM>Show As : 2</ITEM>\r\n<ITEM>LABEL : 1</ITEM>\r\n"
      "<ITEM>Send As ICAL Boolean : 1</ITEM>\r\n<ITEM>Forward Instance : 1</ITEM>\r\n"
      "Show As: Busy\r\nLABEL: Importent\r\n");
  EXPECT_EQ(RenderAppointment(bag, kMap, RowKind::kPreview), "Location : Room 5\r\n");

  PropertyBag odd = Bag({{0x9006, kLong, LE(4, 4)}, {0x9007, kLong, LE(11, 4)}});
  EXPECT_EQ(RenderAppointment(odd, kMap, RowKind::kSave),
            "<ITEM>Show As : 4</ITEM>\r\n<ITEM>LABEL : 11</ITEM>\r\n");
  EXPECT_EQ(RenderAppointment(Bag({}), kMap, RowKind::kSave), "")
      << "absent numbers give no row and no tail";
}

TEST(GetCategories, NamedValueThenAnyListNamingACategory) {
  EXPECT_EQ(GetCategories(Bag({{0x9004, 0x101F, MultiValue({W("Red"), {}, W("Blue")})}}), kMap),
            "Red;Blue");
  // Offsets 0x14 (kept), 0x400 (outside), 0x1A (kept), 0x16 (goes back).
  const Buf bad =
      Cat({LE(4, 4), LE(0x14, 4), LE(0x400, 4), LE(0x1A, 4), LE(0x16, 4), W("Red"), W("Gold")});
  EXPECT_EQ(GetCategories(Bag({{0x9004, 0x101F, bad}}), kMap), "Red;Gold");
  auto ansi = [](const char* a, const char* b) {
    return MultiValue({Buf(a, a + std::strlen(a)), Buf(b, b + std::strlen(b))});
  };
  PropertyBag lost = Bag({{0x9004, 0x101F, LE(0, 4)},
                          {0x7001, 0x101E, ansi("Work", "Home")},
                          {0x7002, 0x101E, ansi("Travel", "Green CATEGORY")}});
  EXPECT_EQ(GetCategories(lost, kMap), "Travel;Green CATEGORY")
      << "taken whole, from the first that names one";
  EXPECT_EQ(GetCategories(Bag({{0x7001, 0x101E, ansi("Work", "Home")}}), kMap), "");
}

TEST(RenderContact, RunsInOrderWithFallbackNameAndSharedTags) {
  PropertyBag bag = Bag({{0x001A, kText, W("IPM.Contact")},
                         {0x900B, kText, {}},
                         {0x900C, kText, W("Ann Lee")},
                         {0x9004, 0x101F, MultiValue({W("VIP")})},
                         {0x3A08, kText, W("555-1234")},
                         {0x3A42, kTime, LE(kJan2024, 8)},
                         {0x900D, kMultiBinary, MultiBinary({OneOff("B", "SMTP", "b@x")})}});
  EXPECT_EQ(RenderContact(bag, kMap, RowKind::kSave, {}),
            "<ITEM>EMAIL1 DISPLAY NAME : Ann Lee</ITEM>\r\n<ITEM>CATAGORIES : VIP</ITEM>\r\n"
            "<ITEM>BUSINESS TELEPHONE NUMBER : 555-1234</ITEM>\r\n<ITEM>OFFICE TELEPHONE NUMBER : "
            "555-1234</ITEM>\r\n"
            "<ITEM>BIRTHDAY : 133500000000000000</ITEM>\r\n")
      << "a contact lists no members";
  EXPECT_NE(RenderContact(bag, kMap, RowKind::kPreview, {})
                .find("BIRTHDAY : Wed 01/17/2024 21:20 PM\r\n"),
            std::string::npos);
}

TEST(ListMembers, OneOffEntriesFromTheFirstSlotThatHasThem) {
  const Buf wrapped = Cat({LE(0, 4), Buf(16, 0xC0), Buf(8, 0x11)});  // not a one-off: skipped
  const Buf members =
      MultiBinary({OneOff("Ann", "SMTP", "ann@x.org"), Buf(10, 0), wrapped,
                  OneOff("Bob", "SMTP", "bob@x.org", false), OneOff("Ann", "SMTP", "ann@x.org"),
                  OneOff("", "SMTP", "nobody@x.org")});
  bool asked = false;
  const SubnodeBytes subnodes = [&] {
    asked = true;
    return std::vector<Buf>{Buf(40, 0xFF), MultiBinary({OneOff("Cy", "EX", "/o=x/cn=cy")})};
  };
  PropertyBag list = Bag({{0x001A, kText, W("IPM.DistList")}, {0x900D, kMultiBinary, members}});
  const std::string save = RenderContact(list, kMap, RowKind::kSave, subnodes);
  EXPECT_EQ(save,
            "<ITEM>CONTACT DL ITEM :  Ann TYPE : SMTP EMAIL ID : ann@x.org</ITEM>\r\n"
            "<ITEM>CONTACT DL ITEM :  Bob TYPE : SMTP EMAIL ID : bob@x.org</ITEM>\r\n");
  EXPECT_FALSE(asked);
  EXPECT_EQ(ReadMarkup(save), save) << "the ' : ' inside a member's value stays in the value";

  // A fixed slot is tried before the mapped list; with neither, the subnodes are read.
  PropertyBag slot = Bag({{0x8100, kMultiBinary, MultiBinary({OneOff("Dan", "SMTP", "d@x")})},
                          {0x900D, kMultiBinary, members}});
  ASSERT_EQ(ListMembers(slot, kMap, subnodes).size(), 1u);
  EXPECT_EQ(ListMembers(slot, kMap, subnodes)[0].name, "Dan");
  const std::vector<ListMember> fallback =
      ListMembers(Bag({{0x8100, kText, W("no list")}}), kMap, subnodes);
  EXPECT_TRUE(asked);
  EXPECT_EQ(fallback, (std::vector<ListMember>{{"Cy", "EX", "/o=x/cn=cy"}}));
}

TEST(ReadMarkup, TimeRowsBecomeLocalTextAndTheRestIsKept) {
  EXPECT_EQ(
      ReadMarkup(
          "<ITEM>END TIME : 133500000000000000</ITEM>\r\n<ITEM>Location : Hall : east</ITEM>\r\n"
          "<ITEM>WEDDING_ANNIVERSARY : 94354848000000000</ITEM>\r\n<ITEM>DUE DATE : soon</ITEM>\r\n"
          "<ITEM>LAST UPDATED : 133500000000000000</ITEM>\r\nShow As: Busy\r\n"),
      "<ITEM>END TIME : Wed 01/17/2024 21:20 PM</ITEM>\r\n<ITEM>Location : Hall : east</ITEM>\r\n"
      "<ITEM>WEDDING_ANNIVERSARY : </ITEM>\r\n<ITEM>DUE DATE : </ITEM>\r\n"
      "<ITEM>LAST UPDATED : 133500000000000000</ITEM>\r\n");
  EXPECT_EQ(ReadMarkup("START TIME : Wed 01/17/2024 21:20 PM\r\n"), "") << "a preview has no rows";
}

// Every item of these stores with a view, against what pffexport's item dump
// (`pffexport -d -m items`) shows for it.
TEST(RenderSamples, ViewsOfRealItems) {
  MARROW_REQUIRE_TESTDATA();
  struct Sample {
    const char* store;
    std::map<int, int> kinds;  // items of each kind
    std::vector<std::string> rows;
  };
  // The list holds three members (pffexport shows contact name 1, dist
  // name 1 and dist name 2). The list reader takes the value as 8-byte
  // entries with the offset in their second word, but the store keeps 4-byte
  // offsets; so it finds one slice, which starts at the second member, and
  // shows that member alone. The other two are lost by that rule.
  const std::vector<std::string> list = {
      "<ITEM>CONTACT DL ITEM :  dist name 1 TYPE : SMTP EMAIL ID : dist1@rjohnson.id.au</ITEM>\r\n",
      "<ITEM>EMAIL1 EMAIL ADDRESS : contact1@rjohnson.id.au</ITEM>\r\n"};
  const std::vector<std::string> lostMembers = {
      "<ITEM>CONTACT DL ITEM :  contact name 1 TYPE : SMTP EMAIL ID : "
      "contact1@rjohnson.id.au</ITEM>\r\n",
      "<ITEM>CONTACT DL ITEM :  dist name 2 TYPE : SMTP EMAIL ID : dist2@rjohnson.id.au</ITEM>\r\n"};
  std::vector<std::string> distList = list;
  distList.insert(distList.end(),
                  {"<ITEM>START TIME : 131146236000000000</ITEM>\r\n",  // Aug 02, 2016 15:00 UTC
                   "<ITEM>Recurrence Pattern : every Tuesday from 8:00 AM to 8:30 AM</ITEM>\r\n",
                   "Show As: Busy\r\n"});
  const std::vector<std::string> contacts = {
      "<ITEM>EMAIL1 EMAIL ADDRESS : MargaretJTolle@dayrep.com</ITEM>\r\n",
      "<ITEM>COMPANY NAME : Grade A Investment</ITEM>\r\n",
      "<ITEM>PRIMARY TELEPHONE NUMBER : 046-630-4614046-630-4614</ITEM>\r\n"};
  const Sample samples[] = {
      {"pst/unicode/java-libpst_dist-list.pst", {{10, 1}, {11, 1}, {13, 1}}, distList},
      {"ost4k/java-libpst_dist-list.ost", {{10, 1}, {11, 1}, {13, 1}}, distList},
      {"pst/unicode/java-libpst_passworded.pst", {{11, 1}, {13, 1}}, list},
      {"pst/unicode/aspose_SampleContacts.pst", {{11, 6}}, contacts},
      {"ost4k/aspose_SampleContacts.ost", {{11, 6}}, contacts},
      {"pst/unicode/aspose_Outlook.pst",
       {{10, 1}, {11, 1}},
       {"<ITEM>EMAIL1 EMAIL ADDRESS : saqib.razzaq@xp.local</ITEM>\r\n",
        "<ITEM>Location : Room 5</ITEM>\r\n",
        "<ITEM>START TIME : 129531942000000000</ITEM>\r\n"}},  // Jun 22, 2011 05:30 UTC
      {"pst/unicode/hiraoka_contacts.pst",
       {{11, 1}},
       {"<ITEM>SURNAME : イグザンプル</ITEM>\r\n",
        "<ITEM>EMAIL1 EMAIL ADDRESS : test@example.com</ITEM>\r\n",
        "<ITEM>BIRTHDAY : 125911260000000000</ITEM>\r\n"}},  // Dec 31, 1999 15:00 UTC
      {"pst/ansi/go-pst_32-bit.pst",
       {{10, 1}},
       {"<ITEM>START TIME : 127374138000000000</ITEM>\r\n", "Show As: Tentative\r\n"}},
      {"ost/unicode512/aspose_SampleOstFile.ost",
       {{10, 11}},
       {"<ITEM>START TIME : 129609438372903037</ITEM>\r\n",
        "<ITEM>Location : meeting request</ITEM>\r\n",
        "<ITEM>Time Zone : (GMT+05:00) Islamabad, Karachi</ITEM>\r\n"}},
  };
  for (const Sample& sample : samples) {
    SCOPED_TRACE(sample.store);
    StoreReader reader(::testing::TempDir());
    // From memory: the reader locks a file it opens, and other tests read the samples too.
    ASSERT_TRUE(reader.OpenSource(std::make_unique<MemorySource>(test::ReadFileBytes(test::Sample(sample.store)))));
    reader.LoadNameMap();
    std::vector<NodeEntry> messages;
    VisitedSet pages;
    reader.ForEachNodeEntry(reader.nodeRootOffset, pages, [&](const NodeEntry& e) {
      if ((e.nodeId & kNodeTypeMask) == kNodeTypeMessage) messages.push_back(e);
    });
    std::map<int, int> kinds;
    std::string all;
    for (const NodeEntry& e : messages) {
      SubnodeLists subnodes;
      reader.ReadSubnodeList(e.subnodeBlock, subnodes);
      PropertyBag bag;
      ASSERT_TRUE(reader.ReadBagFromBlock(e.dataBlock, bag, subnodes));
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
      const std::string save =
          RenderItem(kind, bag, reader.namedProperties, RowKind::kSave, children);
      if (save.empty()) continue;
      ++kinds[kind];
      all += save;
      const std::string preview =
          RenderItem(kind, bag, reader.namedProperties, RowKind::kPreview, children);
      EXPECT_EQ(preview.find("<ITEM>"), std::string::npos);
      EXPECT_FALSE(preview.empty());
    }
    EXPECT_EQ(kinds, sample.kinds);
    for (const std::string& row : sample.rows) EXPECT_NE(all.find(row), std::string::npos) << row;
    for (const std::string& row : lostMembers) EXPECT_EQ(all.find(row), std::string::npos) << row;
  }
}

}  // namespace
}  // namespace marrow
