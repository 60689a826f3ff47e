// The engine hand-off files: the header lines and the property dump.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "content/engine_files.h"
#include "content/property_values.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using Buf = std::vector<std::uint8_t>;

Buf Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return Buf(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

PropertyValue Value(std::uint16_t id, std::uint16_t type, const Buf& bytes) {
  return PropertyValue::InMemory(id, type, bytes.data(), bytes.size());
}

struct Record {
  std::uint16_t id, type;
  std::string name;
  Buf value;
};

std::vector<Record> ReadDump(const Buf& b) {
  std::vector<Record> out;
  std::size_t at = 0;
  while (at + 6 <= b.size()) {
    Record r;
    r.id = ReadU16(b, at);
    r.type = ReadU16(b, at + 2);
    const std::size_t n = ReadU16(b, at + 4);
    r.name.assign(b.begin() + at + 6, b.begin() + at + 6 + n);
    at += 6 + n;
    const std::size_t size = ReadU32(b, at);
    r.value.assign(b.begin() + at + 4, b.begin() + at + 4 + size);
    at += 4 + size;
    out.push_back(r);
  }
  EXPECT_EQ(at, b.size());
  return out;
}

class EngineFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("engine-" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  fs::path dir_;
};

TEST_F(EngineFiles, DumpNamesNamedPropertiesAndLeavesOutWhatItMust) {
  const std::string guid = "{00062003-0000-0000-C000-000000000046}";
  const NameMap map = {{0x8205, 0x8042, guid}, {0x8102, 0x8050, guid}};
  PropertyBag bag;
  bag.Append(Value(0x0037, 0x001F, {'H', 0, 'i', 0}));
  bag.Append(Value(0x0E06, 0x0040, Buf(8, 0x11)));          // the delivery time: never written
  bag.Append(Value(0x8042, 0x0003, {2, 0, 0, 0}));          // local id of long id 0x8205
  bag.Append(Value(0x8050, 0x0005, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));  // percent complete: zeroed
  bag.Append(Value(0x1000, 0x001F, {}));                    // no bytes: left out
  const fs::path dump = dir_ / kPropertyDumpFileName;
  ASSERT_TRUE(WritePropertyDump(bag, map, dump.string()));
  const std::vector<Record> r = ReadDump(Slurp(dump));
  ASSERT_EQ(r.size(), 3u);
  EXPECT_EQ(r[0].id, 0x0037);
  EXPECT_EQ(r[0].name, "FAKE");
  EXPECT_EQ(r[0].value, (Buf{'H', 0, 'i', 0}));
  EXPECT_EQ(r[1].id, 0x8205);
  EXPECT_EQ(r[1].type, 0x0003);
  EXPECT_EQ(r[1].name, guid);
  EXPECT_EQ(r[2].id, 0x8102);
  EXPECT_EQ(r[2].value, Buf(8, 0));

  // A bag with only the delivery time gives an empty file.
  PropertyBag timeOnly;
  timeOnly.Append(Value(0x0E06, 0x0040, Buf(8, 1)));
  ASSERT_TRUE(WritePropertyDump(timeOnly, map, dump.string()));
  EXPECT_EQ(fs::file_size(dump), 0u);
  EXPECT_FALSE(WritePropertyDump(bag, map, (dir_ / "no/such/dir/x").string()));
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
            "EMAIL\r\nNO\r\n129483456000000000\r\nIPM.Note<SUBJECT>Two  lines\r\n17\r\n261\r\n2<CATEGORY>Red;Blue\r\n");
  item.messageClass.clear();
  item.rtfPath = "/tmp/body.Rtf";
  item.categories.clear();
  item.typeText = "TASK";
  item.itemText = "<ITEM>TASK OWNER : Ann</ITEM>\r\n";
  EXPECT_EQ(EngineItemText(item),
            "TASK\r\n/tmp/body.Rtf\r\n129483456000000000\r\nIPM.Note<SUBJECT>Two  lines\r\n17\r\n261\r\n2\r\n"
            "<ITEM>TASK OWNER : Ann</ITEM>\r\n");
  // The file holds the same text in UTF-16.
  const fs::path file = dir_ / kEngineItemFileName;
  item.subject = "Привет";
  ASSERT_TRUE(WriteEngineItemFile(item, file.string()));
  const Buf wide = Slurp(file);
  EXPECT_EQ(Utf16ToUtf8(wide.data(), wide.size()), EngineItemText(item));
}

}  // namespace
}  // namespace marrow
