// Heaps: the allocation map, heap ids in both layouts, property lists and tables.
#include <filesystem>

#include <gtest/gtest.h>

#include "store/heap_map.h"
#include "store/property_bag.h"
#include "store/store_reader.h"
#include "tests/support/heap_builder.h"
#include "tests/support/store_builder.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;
using test::Cat;
using test::HeapBuilder;
using test::LE;
using test::Record;
using test::Wide;

constexpr std::uint16_t kUnicode = 0x001F;
constexpr std::uint16_t kLong = 0x0003;
constexpr std::uint16_t kBinary = 0x0102;

Buf PropertyList(const std::vector<Buf>& values, const std::vector<Buf>& records, std::uint8_t keySize = 2,
                 std::uint8_t valueSize = 6) {
  // Allocation 1: tree header; 2..n+1: values; last: the records.
  HeapBuilder h(0xBC);
  const std::uint32_t recordsId = (2 + static_cast<std::uint32_t>(values.size())) << 5;
  const std::uint32_t header = h.Add(Cat({{0xB5, keySize, valueSize, 0}, LE(recordsId, 4)}));
  for (const Buf& v : values) h.Add(v);
  Buf all;
  for (const Buf& r : records) all.insert(all.end(), r.begin(), r.end());
  h.Add(all);
  h.Root(header);
  return h.Build();
}

PropertyBag Read(StoreReader& r, const Buf& block, bool headersOnly = false, const SubnodeLists& subnodes = {}) {
  PropertyBag bag;
  r.ReadPropertyBag(block, &bag, nullptr, nullptr, subnodes, headersOnly, false);
  return bag;
}

std::string Text(const PropertyValue* v) {
  std::string out;
  if (v == nullptr) return out;
  for (std::uint32_t i = 0; i + 1 < v->size; i += 2) out += static_cast<char>(v->data[i]);
  return out;
}

TEST(HeapMap, OffsetsThatGoDownGiveEmptyAllocations) {
  // Map at 0x40: three allocations starting 0x0C, 0x20, 0x10 and ending 0x30; one beyond the map.
  Buf block(0x60, 0);
  auto put = [&](std::size_t at, std::uint16_t v) {
    block[at] = v & 0xFF;
    block[at + 1] = v >> 8;
  };
  put(0x40, 4);
  put(0x44, 0x0C);
  put(0x46, 0x20);
  put(0x48, 0x10);
  put(0x4A, 0x50);
  put(0x4C, 0x30);
  HeapMap map = BuildHeapMap(block, 0x40, 0x44, 5);
  EXPECT_EQ(map.allocations, 4);
  EXPECT_EQ(map.starts, (std::vector<std::uint32_t>{0x0C, 0x20, 0x10, 0x30}));
  EXPECT_EQ(map.sizes, (std::vector<std::uint32_t>{0x14, 0, 0x20, 0x10}));
}

TEST(PropertyList, InlineHeapAndEmptyValues) {
  Buf block = PropertyList({Wide("Inbox"), Wide("IPF.Note")},
                           {Record(0x3001, kUnicode, 2 << 5), Record(0x3602, kLong, 7),
                            Record(0x3613, kUnicode, 3 << 5), Record(0x360A, 0x000B, 1),
                            Record(0x3603, kUnicode, 0)});
  StoreReader r;
  PropertyBag bag = Read(r, block);
  ASSERT_EQ(bag.size(), 4u) << "a zero heap id gives no value";
  EXPECT_EQ(Text(bag.Find(0x3001)), "Inbox");
  EXPECT_EQ(Text(bag.Find(0x3613)), "IPF.Note");
  const PropertyValue* count = bag.Find(0x3602);
  ASSERT_NE(count, nullptr);
  EXPECT_EQ(count->size, 4u);
  EXPECT_EQ(ReadU32(count->data, 0), 7u);
  EXPECT_EQ(count->data.size(), 6u) << "two zero bytes follow every value";
  EXPECT_EQ(bag.Values()[0].propId, 0x3001) << "file order is kept";
}

TEST(PropertyList, WrongTreeHeaderGivesNothing) {
  StoreReader r;
  EXPECT_TRUE(Read(r, PropertyList({Wide("x")}, {Record(0x3001, kUnicode, 2 << 5)}, 4)).empty())
      << "key size 4 is not a property list";
  EXPECT_TRUE(Read(r, PropertyList({Wide("x")}, {Record(0x3001, kUnicode, 2 << 5)}, 2, 8)).empty())
      << "nor is value size 8";
  Buf block = PropertyList({Wide("x")}, {Record(0x3001, kUnicode, 2 << 5)});
  block[2] = 0xEB;
  EXPECT_TRUE(Read(r, block).empty());
  block[2] = 0xEC;
  block[3] = 0x7C;
  EXPECT_TRUE(Read(r, block).empty()) << "a table is not read as a list";
  EXPECT_TRUE(Read(r, Buf(0x0F, 0)).empty());
}

TEST(PropertyList, InlineTypeWithLowBitsSetIsANumber) {
  StoreReader r;
  EXPECT_TRUE(Read(r, PropertyList({}, {Record(0x0E08, kLong, 0x1234F)})).empty())
      << "a list needs at least three allocations";
  PropertyBag bag = Read(r, PropertyList({Wide("x")}, {Record(0x0E08, kLong, 0x1234F)}));
  ASSERT_NE(bag.Find(0x0E08), nullptr);
  EXPECT_EQ(ReadU32(bag.Find(0x0E08)->data, 0), 0x1234Fu);
}

// A store whose block index holds one data block, for subnode values.
class SubnodeStore : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() / ("marrow-heap-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    test::StoreBuilder b(test::Form::Unicode512);
    b.Put(0x8000, body_);
    b.Put(0x8800, {});
    b.BlockLeaf(0x4000, {{0x40, 0x8000, static_cast<std::uint16_t>(body_.size())}, {0x44, 0x8800, 0}});
    b.Roots(0x4200, 0x4000);
    reader_ = std::make_unique<StoreReader>(dir_.string());
    ASSERT_TRUE(reader_->OpenSource(b.Source()));
    reader_->UpdateCryptMethod(0);
  }
  void TearDown() override {
    reader_.reset();
    std::filesystem::remove_all(dir_);
  }
  std::size_t FilesLeft() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(dir_), {}));
  }
  Buf body_ = Wide("a long body that lives in a subnode");
  std::filesystem::path dir_;
  std::unique_ptr<StoreReader> reader_;
  SubnodeLists subnodes_ = {{0x8F, 0x40, 0}, {0xAF, 0x44, 0}, {0x7F, 0x40, 0}};
};

TEST_F(SubnodeStore, ValuesInSubnodesSpillToFilesOwnedByTheBag) {
  Buf block = PropertyList({Wide("x")}, {Record(0x1000, kUnicode, 0x8F), Record(0x1013, kBinary, 0xAF),
                                Record(0x3701, kBinary, 0x8F)});
  {
    PropertyBag bag = Read(*reader_, block, false, subnodes_);
    const PropertyValue* body = bag.Find(0x1000);
    ASSERT_NE(body, nullptr);
    EXPECT_TRUE(body->data.empty());
    EXPECT_EQ(body->size, body_.size());
    ASSERT_FALSE(body->spillPath.empty());
    EXPECT_EQ(std::filesystem::file_size(body->spillPath), body_.size());
    EXPECT_EQ(bag.Find(0x1013), nullptr) << "an empty subnode gives no value";
    const PropertyValue* attachment = bag.Find(0x3701);
    ASSERT_NE(attachment, nullptr);
    EXPECT_TRUE(attachment->spillPath.empty());
    EXPECT_EQ(ReadU32(attachment->data, 0), 0x8Fu) << "the attachment is the reference itself";
    EXPECT_EQ(FilesLeft(), 1u);
  }
  EXPECT_EQ(FilesLeft(), 0u) << "releasing the bag deletes its spill files";
}

TEST_F(SubnodeStore, HeadersOnlySkipsSubnodesButTheTransportHeaders) {
  Buf block = PropertyList({Wide("x")}, {Record(0x1000, kUnicode, 0x8F), Record(0x007D, kUnicode, 0x7F)});
  PropertyBag bag = Read(*reader_, block, true, subnodes_);
  EXPECT_EQ(bag.Find(0x1000), nullptr);
  ASSERT_NE(bag.Find(0x007D), nullptr);
  EXPECT_EQ(bag.Find(0x007D)->size, body_.size());
}

TEST(ResolveHeapId, RulesOfTheMap) {
  HeapBuilder h(0xBC);
  const std::uint32_t one = h.Add(Wide("abc"));
  h.Add({});  // an empty allocation
  Buf block = h.Build();
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

TEST(ResolveHeapId, SegmentsOfAJoinedHeap) {
  HeapBuilder first(0xBC), second(0xBC);
  first.Add(Wide("first"));
  second.Add(Wide("second!"));
  Buf a = first.Build(), b = second.Build();
  Buf joined = Cat({a, b});
  std::vector<HeapSegment> segments = {{0, a.size()}, {a.size(), b.size()}};
  StoreReader r;
  std::uint64_t s = 0, e = 0;
  ASSERT_TRUE(r.ResolveHeapId(joined, ReadU16(a, 0), (1u << 16) | (1u << 5), s, e, &segments));
  EXPECT_EQ(Buf(joined.begin() + s, joined.begin() + e), Wide("second!"));
  // The 4096-byte form numbers segments from bit 19; bit 16 is part of the index there.
  r.SetLargePage(true);
  ASSERT_TRUE(r.ResolveHeapId(joined, ReadU16(a, 0), (1u << 19) | (1u << 5), s, e, &segments));
  EXPECT_EQ(Buf(joined.begin() + s, joined.begin() + e), Wide("second!"));
}

TEST(ResolveHeapId, LargeFormKeepsFourteenIndexBits) {
  HeapBuilder h(0xBC);
  std::uint32_t id = 0;
  for (int i = 0; i < 2100; ++i) id = h.Add({static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(i >> 8)});
  Buf block = h.Build();
  ASSERT_LT(block.size(), 0x10000u);
  ASSERT_EQ(id, 2100u << 5);  // bit 16 is set: an index above 2047
  StoreReader r;
  r.SetLargePage(true);
  std::uint64_t s = 0, e = 0;
  ASSERT_TRUE(r.ResolveHeapId(block, ReadU16(block, 0), id, s, e, nullptr));
  EXPECT_EQ(ReadU16(block, s), 2099);
  r.SetLargePage(false);
  EXPECT_TRUE(r.ResolveHeapId(block, ReadU16(block, 0), id, s, e, nullptr));
  EXPECT_EQ(s, 0u) << "read with the 512-byte layout the id names segment 1";
}

Buf Table(unsigned rows, std::uint32_t rowsId = 0, bool dropRows = false) {
  // Columns: 0x3001 unicode at offset 4, 0x0E08 long at offset 0; rows of 8 bytes.
  HeapBuilder h(0x7C);
  const std::uint32_t name1 = h.Add(Wide("first row"));
  const std::uint32_t name2 = h.Add(Wide("second"));
  Buf matrix;
  for (unsigned i = 0; i < rows; ++i) {
    auto row = Cat({LE(100 + i, 4), LE(i == 0 ? name1 : name2, 4)});
    matrix.insert(matrix.end(), row.begin(), row.end());
  }
  const std::uint32_t matrixId = h.Add(matrix);
  Buf keys;
  for (unsigned i = 0; i < rows; ++i) {
    auto k = Cat({LE(i, 4), LE(i, 2)});
    keys.insert(keys.end(), k.begin(), k.end());
  }
  const std::uint32_t keysId = rows ? h.Add(keys) : 0;
  const std::uint32_t indexId = h.Add(Cat({{0xB5, 4, 2, 0}, LE(rows ? keysId : 0, 4)}));
  Buf info = Cat({{0x7C, 2}, LE(0, 6), LE(8, 2), LE(indexId, 4), LE(dropRows ? 0 : (rowsId ? rowsId : matrixId), 4),
                  LE(0, 4), LE(0x30010000 | kUnicode, 4), LE(4, 2), {4, 1}, LE(0x0E080000 | kLong, 4), LE(0, 2), {0, 0}});
  h.Root(h.Add(info));
  return h.Build();
}

TEST(Table, RowsAndColumns) {
  StoreReader r;
  std::vector<PropertyBag> rows;
  const Buf block = Table(2);
  r.ReadPropertyBag(block, nullptr, &rows, nullptr, {}, false, true);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(Text(rows[0].Find(0x3001)), "first row");
  EXPECT_EQ(Text(rows[1].Find(0x3001)), "second");
  EXPECT_EQ(ReadU32(rows[1].Find(0x0E08)->data, 0), 101u);
  std::vector<PropertyBag> none;
  r.ReadPropertyBag(block, nullptr, &none, nullptr, {}, false, false);
  EXPECT_TRUE(none.empty()) << "a table is read only when asked for";
}

TEST(Table, ZeroRowsAndTheThirdAllocationFallback) {
  StoreReader r;
  std::vector<PropertyBag> rows;
  r.ReadPropertyBag(Table(0), nullptr, &rows, nullptr, {}, false, true);
  EXPECT_TRUE(rows.empty());
  // Rows that do not resolve are taken from the third allocation: here the row matrix.
  std::vector<PropertyBag> fallback;
  r.ReadPropertyBag(Table(2, 0, true), nullptr, &fallback, nullptr, {}, false, true);
  ASSERT_EQ(fallback.size(), 2u);
  EXPECT_EQ(ReadU32(fallback[0].Find(0x0E08)->data, 0), 100u);
}

}  // namespace
}  // namespace marrow

namespace marrow {
namespace {

TEST(NameMap, EntriesNeedAGuidFromTheStreamAndANumericNameAbove0x8000) {
  const Buf guid = {0x08, 0x20, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
  const Buf other = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10};
  // Kind: bit 0 string name, bits 1 and up the set: 1 and 2 are built in, 3 and up the stream.
  const Buf entries = Cat({LE(0x8501, 4), LE(3 << 1, 2), LE(0, 2),    // first GUID, id 0x8000
                           LE(0x8233, 4), LE(4 << 1, 2), LE(5, 2),    // second GUID, id 0x8005
                           LE(0x8100, 4), LE(2 << 1, 2), LE(1, 2),    // a built-in set: dropped
                           LE(0x0001, 4), LE(3 << 1, 2), LE(2, 2),    // numeric name too small: dropped
                           LE(0x8001, 4), LE(9 << 1, 2), LE(3, 2)});  // no such GUID: dropped
  Buf heap = PropertyList({Cat({guid, other}), entries},
                          {Record(0x0002, kBinary, 2 << 5), Record(0x0003, kBinary, 3 << 5)});
  test::StoreBuilder b(test::Form::Unicode512);
  b.Put(0x8000, heap);
  b.BlockLeaf(0x4000, {{0x40, 0x8000, static_cast<std::uint16_t>(heap.size())}});
  b.NodeLeaf(0x4200, {{0x21, 0x44, 0, 0}, {0x61, 0x40, 0, 0}});
  b.Roots(0x4200, 0x4000);
  StoreReader r;
  ASSERT_TRUE(r.OpenSource(b.Source()));
  r.LoadNameMap();
  ASSERT_EQ(r.namedProperties.size(), 2u);
  EXPECT_EQ(r.namedProperties[0].numericName, 0x8501u);
  EXPECT_EQ(r.namedProperties[0].propId, 0x8000);
  EXPECT_EQ(r.namedProperties[0].guidText, "{00062008-0000-0000-c000-000000000046}");
  EXPECT_EQ(r.namedProperties[1].propId, 0x8005);
  EXPECT_EQ(r.namedProperties[1].guidText, "{04030201-0605-0807-090a-0b0c0d0e0f10}");
}

}  // namespace
}  // namespace marrow
