// Heaps: the allocation map, heap ids in both layouts, property lists and tables.
#include <filesystem>

#include <gtest/gtest.h>

#include "store/heap_map.h"
#include "store/property_bag.h"
#include "store/store_reader.h"
#include "tests/support/heap_builder.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;
using test::Cat;
using test::HeapBuilder;
using test::LE;
using test::PropertyList;
using test::Record;
using test::Wide;

constexpr std::uint16_t kUnicode = 0x001F;
constexpr std::uint16_t kLong = 0x0003;
constexpr std::uint16_t kBinary = 0x0102;

PropertyBag Read(StoreReader& r, const Buf& block, bool headersOnly = false, const SubnodeLists& subnodes = {}) {
  PropertyBag bag;
  r.ReadPropertyBag(block, &bag, nullptr, nullptr, subnodes, headersOnly, false);
  return bag;
}

std::string Text(const PropertyValue* v) {
  std::string out;
  for (std::uint32_t i = 0; v != nullptr && i + 1 < v->size; i += 2) out += static_cast<char>(v->data[i]);
  return out;
}

TEST(HeapMap, OffsetsThatGoDownGiveEmptyAllocations) {
  // Map at 0x40: allocations starting 0x0C, 0x20, 0x10 and ending 0x30; one offset beyond the map.
  Buf block(0x60, 0);
  const std::uint16_t offsets[] = {0x0C, 0x20, 0x10, 0x50, 0x30};
  block[0x40] = 4;
  for (int i = 0; i < 5; ++i) block[0x44 + 2 * i] = static_cast<std::uint8_t>(offsets[i]);
  const HeapMap map = BuildHeapMap(block, 0x40, 0x44, 5);
  EXPECT_EQ(map.allocations, 4);
  EXPECT_EQ(map.starts, (std::vector<std::uint32_t>{0x0C, 0x20, 0x10, 0x30}));
  EXPECT_EQ(map.sizes, (std::vector<std::uint32_t>{0x14, 0, 0x20, 0x10}));
}

TEST(PropertyList, WrongHeadersGiveNothingAndTypesDecideWhereValuesAre) {
  StoreReader r;
  const std::vector<Buf> one = {Record(0x3001, kUnicode, 2 << 5)};
  EXPECT_TRUE(Read(r, PropertyList({Wide("x")}, one, 4)).empty()) << "key size 4 is not a property list";
  EXPECT_TRUE(Read(r, PropertyList({Wide("x")}, one, 2, 8)).empty()) << "nor is value size 8";
  Buf block = PropertyList({Wide("x")}, one);
  block[2] = 0xEB;
  EXPECT_TRUE(Read(r, block).empty());
  block[2] = 0xEC;
  block[3] = 0x7C;
  EXPECT_TRUE(Read(r, block).empty()) << "a table is not read as a list";
  EXPECT_TRUE(Read(r, Buf(0x0F, 0)).empty());

  EXPECT_TRUE(Read(r, PropertyList({}, {Record(0x0E08, kLong, 0x1234F)})).empty())
      << "a list needs at least three allocations";
  const PropertyBag bag = Read(
      r, PropertyList({Wide("Inbox")},
                      {Record(0x0E08, kLong, 0x1234F), Record(0x3001, kUnicode, 2 << 5), Record(0x3603, kUnicode, 0)}));
  ASSERT_EQ(bag.size(), 2u) << "a zero heap id gives no value";
  EXPECT_EQ(bag.Values()[0].propId, 0x0E08) << "file order is kept";
  EXPECT_EQ(ReadU32(bag.Find(0x0E08)->data, 0), 0x1234Fu);
  EXPECT_EQ(Text(bag.Find(0x3001)), "Inbox");
}

TEST(PropertyList, LargeSubnodeValuesSpillToFilesOwnedByTheBag) {
  const test::TempFolder dir("heap");
  const Buf body = Wide("a long body that lives in a subnode");
  test::BlockStore s;
  s.Add(0x40, body);
  s.Add(0x44, {});
  auto r = s.Open(dir.Dir().string());
  r->UpdateCryptMethod(0);
  const SubnodeLists subnodes = {{0x8F, 0x40, 0}, {0xAF, 0x44, 0}, {0x7F, 0x40, 0}};
  auto filesLeft = [&] { return std::distance(std::filesystem::directory_iterator(dir.Dir()), {}); };
  const Buf list = PropertyList(
      {Wide("x")}, {Record(0x1000, kUnicode, 0x8F), Record(0x1013, kBinary, 0xAF), Record(0x3701, kBinary, 0x8F)});
  {
    // Under the reader's limit the value stays in memory.
    const PropertyBag bag = Read(*r, list, false, subnodes);
    const PropertyValue* value = bag.Find(0x1000);
    ASSERT_NE(value, nullptr);
    EXPECT_TRUE(value->spillPath.empty());
    EXPECT_EQ(Buf(value->data.begin(), value->data.begin() + value->size), body);
    EXPECT_EQ(filesLeft(), 0);
  }
  r->SetValueMemoryLimit(16);
  {
    const PropertyBag bag = Read(*r, list, false, subnodes);
    const PropertyValue* value = bag.Find(0x1000);
    ASSERT_NE(value, nullptr);
    EXPECT_TRUE(value->data.empty());
    EXPECT_EQ(value->size, body.size());
    ASSERT_FALSE(value->spillPath.empty());
    EXPECT_EQ(std::filesystem::file_size(value->spillPath), body.size());
    EXPECT_EQ(bag.Find(0x1013), nullptr) << "an empty subnode gives no value";
    const PropertyValue* attachment = bag.Find(0x3701);
    ASSERT_NE(attachment, nullptr);
    EXPECT_TRUE(attachment->spillPath.empty());
    EXPECT_EQ(ReadU32(attachment->data, 0), 0x8Fu) << "the attachment is the reference itself";
    EXPECT_EQ(filesLeft(), 1);
  }
  EXPECT_EQ(filesLeft(), 0) << "releasing the bag deletes its spill files";

  // Reading headers only skips subnode values but the transport headers.
  const PropertyBag headers = Read(
      *r, PropertyList({Wide("x")}, {Record(0x1000, kUnicode, 0x8F), Record(0x007D, kUnicode, 0x7F)}), true, subnodes);
  EXPECT_EQ(headers.Find(0x1000), nullptr);
  ASSERT_NE(headers.Find(0x007D), nullptr);
  EXPECT_EQ(headers.Find(0x007D)->size, body.size());
}

TEST(ResolveHeapId, RulesOfTheMap) {
  HeapBuilder h(0xBC);
  const std::uint32_t one = h.Add(Wide("abc"));
  h.Add({});  // an empty allocation
  const Buf block = h.Build();
  const std::uint64_t map = ReadU16(block, 0);
  StoreReader r;
  std::uint64_t s = 0, e = 0;
  ASSERT_TRUE(r.ResolveHeapId(block, map, one, s, e, nullptr));
  EXPECT_EQ(e - s, 6u);
  EXPECT_FALSE(r.ResolveHeapId(block, map, 0x1F, s, e, nullptr)) << "index 0";
  EXPECT_FALSE(r.ResolveHeapId(block, map, 2 << 5, s, e, nullptr)) << "empty allocation";
  EXPECT_EQ(s, 0u);
  EXPECT_TRUE(r.ResolveHeapId(block, map, 40 << 5, s, e, nullptr)) << "beyond the block: nothing, not a failure";
  EXPECT_EQ(s, 0u);
  EXPECT_TRUE(r.ResolveHeapId(block, map, (1 << 16) | one, s, e, nullptr)) << "segment 1 unknown";
  EXPECT_EQ(s, 0u);
}

TEST(ResolveHeapId, SegmentBitsOfBothLayouts) {
  HeapBuilder first(0xBC), second(0xBC);
  first.Add(Wide("first"));
  second.Add(Wide("second!"));
  const Buf a = first.Build(), b = second.Build();
  const Buf joined = Cat({a, b});
  const std::vector<HeapSegment> segments = {{0, a.size()}, {a.size(), b.size()}};
  StoreReader r;
  std::uint64_t s = 0, e = 0;
  ASSERT_TRUE(r.ResolveHeapId(joined, ReadU16(a, 0), (1u << 16) | (1u << 5), s, e, &segments));
  EXPECT_EQ(Buf(joined.begin() + s, joined.begin() + e), Wide("second!"));
  // The 4096-byte form numbers segments from bit 19; bit 16 is part of the index there.
  r.SetLargePage(true);
  ASSERT_TRUE(r.ResolveHeapId(joined, ReadU16(a, 0), (1u << 19) | (1u << 5), s, e, &segments));
  EXPECT_EQ(Buf(joined.begin() + s, joined.begin() + e), Wide("second!"));

  HeapBuilder many(0xBC);
  std::uint32_t id = 0;
  for (int i = 0; i < 2100; ++i) id = many.Add({static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(i >> 8)});
  const Buf block = many.Build();
  ASSERT_EQ(id, 2100u << 5);  // bit 16 set: an index above 2047
  ASSERT_TRUE(r.ResolveHeapId(block, ReadU16(block, 0), id, s, e, nullptr));
  EXPECT_EQ(ReadU16(block, s), 2099) << "the large form keeps fourteen index bits";
  r.SetLargePage(false);
  EXPECT_TRUE(r.ResolveHeapId(block, ReadU16(block, 0), id, s, e, nullptr));
  EXPECT_EQ(s, 0u) << "read with the 512-byte layout the id names segment 1";
}

// Columns 0x3001 (unicode, offset 4) and 0x0E08 (long, offset 0); rows of 8 bytes.
Buf Table(unsigned rows, bool dropRows = false) {
  HeapBuilder h(0x7C);
  const std::uint32_t name1 = h.Add(Wide("first row"));
  const std::uint32_t name2 = h.Add(Wide("second"));
  Buf matrix, keys;
  for (unsigned i = 0; i < rows; ++i) {
    matrix = Cat({matrix, LE(100 + i, 4), LE(i == 0 ? name1 : name2, 4)});
    keys = Cat({keys, LE(i, 4), LE(i, 2)});
  }
  const std::uint32_t matrixId = h.Add(matrix);
  const std::uint32_t keysId = rows ? h.Add(keys) : 0;
  const std::uint32_t indexId = h.Add(Cat({{0xB5, 4, 2, 0}, LE(keysId, 4)}));
  h.Root(h.Add(Cat({{0x7C, 2},
                    LE(0, 6),
                    LE(8, 2),
                    LE(indexId, 4),
                    LE(dropRows ? 0 : matrixId, 4),
                    LE(0, 4),
                    LE(0x30010000 | kUnicode, 4),
                    LE(4, 2),
                    {4, 1},
                    LE(0x0E080000 | kLong, 4),
                    LE(0, 2),
                    {0, 0}})));
  return h.Build();
}

TEST(Table, RowsColumnsAndTheThirdAllocationFallback) {
  StoreReader r;
  auto read = [&](const Buf& block, bool wantTable) {
    std::vector<PropertyBag> rows;
    r.ReadPropertyBag(block, nullptr, &rows, nullptr, {}, false, wantTable);
    return rows;
  };
  const std::vector<PropertyBag> rows = read(Table(2), true);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(Text(rows[0].Find(0x3001)), "first row");
  EXPECT_EQ(Text(rows[1].Find(0x3001)), "second");
  EXPECT_EQ(ReadU32(rows[1].Find(0x0E08)->data, 0), 101u);
  EXPECT_TRUE(read(Table(2), false).empty()) << "a table is read only when asked for";
  EXPECT_TRUE(read(Table(0), true).empty());
  // Rows that do not resolve are taken from the third allocation: here the row matrix.
  const std::vector<PropertyBag> fallback = read(Table(2, true), true);
  ASSERT_EQ(fallback.size(), 2u);
  EXPECT_EQ(ReadU32(fallback[0].Find(0x0E08)->data, 0), 100u);
}

TEST(NameMap, EntriesNeedAGuidFromTheStreamAndANumericNameAbove0x8000) {
  const Buf guid = {0x08, 0x20, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
  const Buf other = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10};
  // Kind: bit 0 string name, bits 1 and up the set: 1 and 2 are built in, 3 and up the stream.
  const Buf entries = Cat({LE(0x8501, 4), LE(3 << 1, 2), LE(0, 2),    // first GUID, id 0x8000
                           LE(0x8233, 4), LE(4 << 1, 2), LE(5, 2),    // second GUID, id 0x8005
                           LE(0x8100, 4), LE(2 << 1, 2), LE(1, 2),    // a built-in set: dropped
                           LE(0x0001, 4), LE(3 << 1, 2), LE(2, 2),    // numeric name too small: dropped
                           LE(0x8001, 4), LE(9 << 1, 2), LE(3, 2)});  // no such GUID: dropped
  test::BlockStore s;
  s.Add(0x40, PropertyList({Cat({guid, other}), entries},
                           {Record(0x0002, kBinary, 2 << 5), Record(0x0003, kBinary, 3 << 5)}));
  s.Nodes({{0x21, 0x44, 0, 0}, {0x61, 0x40, 0, 0}});
  auto r = s.Open();
  r->LoadNameMap();
  ASSERT_EQ(r->NamedProperties().size(), 2u);
  EXPECT_EQ(r->NamedProperties()[0].numericName, 0x8501u);
  EXPECT_EQ(r->NamedProperties()[0].propId, 0x8000);
  EXPECT_EQ(r->NamedProperties()[0].guidText, "{00062008-0000-0000-c000-000000000046}");
  EXPECT_EQ(r->NamedProperties()[1].propId, 0x8005);
  EXPECT_EQ(r->NamedProperties()[1].guidText, "{04030201-0605-0807-090a-0b0c0d0e0f10}");
}

}  // namespace
}  // namespace marrow
