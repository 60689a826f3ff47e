// The engine hand-off files: the header lines and the property dump.
#include <cstdio>

#include <gtest/gtest.h>

#include "content/engine_files.h"
#include "content/property_values.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using test::Buf;

// The dump's records as "id type name" and the value's bytes.
std::vector<std::pair<std::string, Buf>> ReadDump(const Buf& b) {
  std::vector<std::pair<std::string, Buf>> out;
  std::size_t at = 0;
  while (at + 6 <= b.size()) {
    const std::size_t n = ReadU16(b, at + 4);
    const std::size_t size = ReadU32(b, at + 6 + n);
    if (at + 10 + n + size > b.size()) break;
    char head[16];
    std::snprintf(head, sizeof head, "%04X %04X ", ReadU16(b, at), ReadU16(b, at + 2));
    out.push_back({head + std::string(b.begin() + at + 6, b.begin() + at + 6 + n),
                   Buf(b.begin() + at + 10 + n, b.begin() + at + 10 + n + size)});
    at += 10 + n + size;
  }
  EXPECT_EQ(at, b.size());
  return out;
}

class EngineFiles : public test::ScratchDir {};

TEST_F(EngineFiles, DumpNamesNamedPropertiesAndLeavesOutWhatItMust) {
  const std::string guid = "{00062003-0000-0000-C000-000000000046}";
  const NameMap map = {{0x8205, 0x8042, guid}, {0x8102, 0x8050, guid}};
  const PropertyBag bag = test::Bag({
      {0x0037, 0x001F, {'H', 0, 'i', 0}},
      {0x0E06, 0x0040, Buf(8, 0x11)},                    // the delivery time: never written
      {0x8042, 0x0003, {2, 0, 0, 0}},                    // local id of long id 0x8205
      {0x8050, 0x0005, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}},  // percent complete: zeroed
      {0x1000, 0x001F, {}},                              // no bytes: left out
  });
  const std::string dump = Path(kPropertyDumpFileName);
  ASSERT_TRUE(WritePropertyDump(bag, map, dump));
  EXPECT_EQ(ReadDump(test::ReadFile<test::Buf>(dump)),
            (std::vector<std::pair<std::string, Buf>>{{"0037 001F FAKE", {'H', 0, 'i', 0}},
                                                      {"8205 0003 " + guid, {2, 0, 0, 0}},
                                                      {"8102 0005 " + guid, Buf(8, 0)}}));

  ASSERT_TRUE(WritePropertyDump(test::Bag({{0x0E06, 0x0040, Buf(8, 1)}}), map, dump));
  EXPECT_EQ(fs::file_size(dump), 0u) << "only the delivery time: an empty file";
  EXPECT_FALSE(WritePropertyDump(bag, map, Path("no/such/dir/x")));
}

TEST_F(EngineFiles, HeaderLinesKeepTheSubjectOnOneLine) {
  EngineItem item;
  item.typeText = "EMAIL";
  item.deliveryTime = 129483456000000000;
  item.messageClass = "REPORT.IPM.Note.NDR";
  item.subject = "Two\r\nlines";
  item.messageFlags = 17;
  item.iconIndex = 0x105;
  item.importance = 2;
  item.categories = "Red;Blue";
  EXPECT_EQ(EngineItemText(item),
            "EMAIL\r\nNO\r\n129483456000000000\r\nIPM.Note<SUBJECT>Two  lines\r\n17\r\n261\r\n"
            "2<CATEGORY>Red;Blue\r\n");
  item.messageClass.clear();
  item.rtfPath = "/tmp/body.Rtf";
  item.categories.clear();
  item.typeText = "TASK";
  item.itemText = "<ITEM>TASK OWNER : Ann</ITEM>\r\n";
  EXPECT_EQ(EngineItemText(item),
            "TASK\r\n/tmp/body.Rtf\r\n129483456000000000\r\nIPM.Note<SUBJECT>Two  lines\r\n17\r\n"
            "261\r\n2\r\n<ITEM>TASK OWNER : Ann</ITEM>\r\n");
  // The file holds the same text in UTF-16.
  item.subject = "Привет";
  ASSERT_TRUE(WriteEngineItemFile(item, Path(kEngineItemFileName)));
  const Buf wide = test::ReadFile<test::Buf>(Path(kEngineItemFileName));
  EXPECT_EQ(Utf16ToUtf8(wide.data(), wide.size()), EngineItemText(item));
}

}  // namespace
}  // namespace marrow
