// The whole-file scan: node rows from every node page, blocks from their trailers.
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "store/block_index_walk.h"
#include "store/lost_item_scanner.h"
#include "store/store_reader.h"
#include "tests/support/disk_list_column.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::Form;
using test::NodeRow;
using test::StoreBuilder;

using test::Column;

TEST(Scanner, RealStoresGiveEveryIndexedBlockAndNodeRow) {
  MARROW_REQUIRE_TESTDATA();
  for (const std::string& store : test::AllStores()) {
    SCOPED_TRACE(store);
    StoreReader reader;
    reader.OpenSource(std::make_unique<MemorySource>(test::ReadFileBytes(test::Sample(store))));
    LostItemScanner scan(reader);
    scan.ScanFile();

    std::set<std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>> found;
    const auto ids = Column(scan.blockIds), offsets = Column(scan.blockOffsets);
    scan.blockSizes.Rewind();
    std::uint16_t size = 0;
    for (std::size_t i = 0; i < ids.size() && scan.blockSizes.Next(&size); ++i) found.insert({ids[i], offsets[i], size});
    // A block the index names is missed only where the scan's rules say so:
    // its trailer lies in a page whose trailer marks it as an index or map
    // page (such pages are not searched for trailers; stale page tails under
    // live blocks do this), or, in the large form, its length counted with a
    // 16-byte trailer comes out one unit short of the 24-byte trailer's.
    const std::vector<std::uint8_t> bytes = test::ReadFileBytes(test::Sample(store));
    const bool large = reader.IsLargePage();
    const std::uint64_t unit = large ? 512 : 64, pageSize = large ? 4096 : 512;
    auto typedPage = [&](std::uint64_t page) {
      if (page + pageSize > bytes.size()) return false;
      const std::size_t at = large ? 0xFE8 : reader.IsAnsi() ? 0x1F4 : 0x1F0;
      const std::uint8_t type = bytes[page + at];
      const bool agreed = large || type == bytes[page + at + 1];
      return agreed && type >= 0x80 && type <= 0x86;
    };
    std::size_t blocks = 0, missing = 0, explained = 0;
    ForEachBlockEntry(reader, [&](const BlockEntry& e) {
      ++blocks;
      if (found.count({e.blockId, e.fileOffset, e.size})) return;
      ++missing;
      const std::uint64_t trailerBytes = large ? 24 : reader.IsAnsi() ? 12 : 16;
      const std::uint64_t trailerUnit = e.fileOffset + (e.size + trailerBytes + unit - 1) / unit * unit - unit;
      const bool shortCount = large && (e.size + 16 + unit - 1) / unit != (e.size + 24 + unit - 1) / unit;
      // Pages that test the trailer's unit: its own, and in the large form the
      // seven before it within the same 64 KiB chunk.
      bool reachable = false;
      const std::uint64_t own = trailerUnit / pageSize * pageSize;
      for (std::uint64_t back = 0; back < (large ? 8u : 1u) && own >= back * pageSize; ++back) {
        const std::uint64_t page = own - back * pageSize;
        if (page / 0x10000 != trailerUnit / 0x10000) break;
        reachable = reachable || !typedPage(page);
      }
      explained += shortCount || !reachable;
    });
    EXPECT_GT(blocks, 20u);
    EXPECT_EQ(missing, explained) << missing << " of " << blocks << " indexed blocks not in the scan";

    std::set<std::uint64_t> scannedNodes;
    for (std::uint64_t id : Column(scan.folders.nodeId)) scannedNodes.insert(id);
    for (std::uint64_t id : Column(scan.messages.nodeId)) scannedNodes.insert(id);
    std::size_t rows = 0, absent = 0;
    VisitedSet pages;
    reader.ForEachNodeEntry(reader.nodeRootOffset, pages, [&](const NodeEntry& e) {
      const std::uint32_t kind = e.nodeId & kNodeTypeMask;
      if (kind != kNodeTypeFolder && kind != kNodeTypeMessage) return;
      ++rows;
      absent += scannedNodes.count(e.nodeId) == 0;
    });
    EXPECT_EQ(absent, 0u) << rows << " indexed folder and message rows";
    EXPECT_EQ(scan.folders.nodeId.RecordCount(), scan.folders.mark.RecordCount());
    EXPECT_EQ(scan.messages.parent.RecordCount(), scan.messages.mark.RecordCount());
  }
}

TEST(Scanner, DeletedRowsBehindTheCountAndRepeats) {
  StoreBuilder b(Form::Unicode512, 0x8000);
  // Four rows written, count set to 1: rows 2 to 4 are deleted but still there.
  b.NodeLeaf(0x4000, {{0x22, 0x40, 0, 0x122}, {0x44, 0x48, 0, 0x22}, {0x44, 0x48, 0, 0x22}, {0x64, 0x4C, 0, 0x22}},
             test::Trailer{.count = 1});
  b.NodeLeaf(0x4200, {{0x64, 0x4C, 0, 0x22}});
  StoreReader reader;
  reader.OpenSource(b.Source());
  LostItemScanner scan(reader);
  scan.ScanFile();
  EXPECT_EQ(Column(scan.folders.nodeId), (std::vector<std::uint64_t>{0x22}));
  // Two equal rows in a row give one entry; the same row on another page gives another.
  EXPECT_EQ(Column(scan.messages.nodeId), (std::vector<std::uint64_t>{0x44, 0x64, 0x64}));
  EXPECT_EQ(Column(scan.messages.parent), (std::vector<std::uint64_t>{0x22, 0x22, 0x22}));
}

TEST(Scanner, BlockLeafRowsOfADeepWalkIncludeThoseBehindTheCount) {
  StoreBuilder b(Form::Unicode512, 0x8000);
  b.BlockLeaf(0x4000, {{0x104, 0x5000, 100}, {0x108, 0x5200, 200}, {0x10C, 0x5400, 300}}, test::Trailer{.count = 1});
  StoreReader reader;
  reader.OpenSource(b.Source());
  LostItemScanner scan(reader);
  std::vector<std::uint8_t> page = reader.ReadAt(0x4000, 512);
  scan.ExtractBlockRows(page);
  // Every slot of the leaf is read: the three rows, then the empty slots.
  const std::vector<std::uint64_t> ids = Column(scan.blockIds);
  ASSERT_EQ(ids.size(), 488u / 24);
  EXPECT_EQ(std::vector<std::uint64_t>(ids.begin(), ids.begin() + 4), (std::vector<std::uint64_t>{0x104, 0x108, 0x10C, 0}));
  EXPECT_EQ(Column(scan.blockOffsets)[2], 0x5400u);
  std::uint64_t offset = 0, size = 0;
  ASSERT_TRUE(scan.ScanFindBlock(0x10C, offset, size));
  EXPECT_EQ(size, 300u);
  // A branch page of the block index gives nothing.
  b.Branch(0x4200, false, 1, {{0x104, 0x4000}});
  StoreReader second;
  second.OpenSource(b.Source());
  LostItemScanner other(second);
  other.ExtractBlockRows(second.ReadAt(0x4200, 512));
  EXPECT_EQ(other.blockIds.RecordCount(), 0u);
}

// Writes a 64-bit 512-byte-form block: data, then its trailer in the last 16 bytes of its units.
void PutBlock(StoreBuilder& b, std::uint64_t at, std::uint64_t id, const std::vector<std::uint8_t>& data,
              bool goodSignature, bool goodChecksum) {
  const std::size_t units = (data.size() + 16 + 63) / 64;
  std::vector<std::uint8_t> block(units * 64, 0);
  std::copy(data.begin(), data.end(), block.begin());
  const std::size_t t = block.size() - 16;
  std::uint64_t x = at ^ id;
  const std::uint16_t sig = static_cast<std::uint16_t>((x ^ (x >> 16)) ^ (goodSignature ? 0 : 1));
  const std::uint32_t crc = BlockChecksum(data) ^ (goodChecksum ? 0 : 1);
  block[t] = data.size() & 0xFF;
  block[t + 1] = data.size() >> 8;
  block[t + 2] = sig & 0xFF;
  block[t + 3] = sig >> 8;
  for (int i = 0; i < 4; ++i) block[t + 4 + i] = static_cast<std::uint8_t>(crc >> (8 * i));
  for (int i = 0; i < 8; ++i) block[t + 8 + i] = static_cast<std::uint8_t>(id >> (8 * i));
  b.Put(at, block);
}

TEST(Scanner, BlockTrailersBySignatureOrChecksum) {
  StoreBuilder b(Form::Unicode512, 0x10000);
  PutBlock(b, 0x4000, 0x104, std::vector<std::uint8_t>(100, 'a'), true, false);
  PutBlock(b, 0x4200, 0x108, std::vector<std::uint8_t>(50, 'b'), false, true);
  PutBlock(b, 0x4400, 0x10C, std::vector<std::uint8_t>(50, 'c'), false, false);
  PutBlock(b, 0x6000, 0x110, std::vector<std::uint8_t>(0x2001, 'd'), true, true);  // too big for this form
  StoreReader reader;
  reader.OpenSource(b.Source());
  LostItemScanner scan(reader);
  scan.ScanFile();
  EXPECT_EQ(Column(scan.blockIds), (std::vector<std::uint64_t>{0x104, 0x108}));
  std::uint64_t offset = 0, size = 0;
  ASSERT_TRUE(scan.ScanFindBlock(0x108, offset, size));
  EXPECT_EQ(offset, 0x4200u);
  EXPECT_EQ(size, 50u);
  EXPECT_FALSE(scan.ScanFindBlock(0x10C, offset, size));
}

TEST(Scanner, ChecksumIsTheUninvertedReflectedCrc) {
  const std::vector<std::uint8_t> data = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  // The common CRC-32 of "123456789" is CBF43926, with inversions at both ends.
  EXPECT_EQ(BlockChecksum(data) , 0x2DFD2D88u);
  EXPECT_EQ(BlockChecksum({}), 0u);
}

TEST(Scanner, DeepLookupsFallBackToTheScan) {
  MARROW_REQUIRE_TESTDATA();
  auto bytes = test::ReadFileBytes(test::Sample("pst/unicode/aspose_Outlook.pst"));
  StoreReader reader;
  reader.OpenSource(std::make_unique<MemorySource>(bytes));
  std::vector<BlockEntry> entries;
  ForEachBlockEntry(reader, [&](const BlockEntry& e) { entries.push_back(e); });
  ASSERT_FALSE(entries.empty());
  // Wipe the block index root: plain look-ups fail, deep ones find the trailer.
  LostItemScanner scan(reader);
  scan.ScanFile();
  std::vector<std::uint8_t> broken = bytes;
  std::fill_n(broken.begin() + reader.blockRootOffset, 512, 0);
  StoreReader damaged;
  damaged.OpenSource(std::make_unique<MemorySource>(broken));
  LostItemScanner deep(damaged);
  deep.ScanFile();
  damaged.SetScanIndex(&deep);
  VisitedSet v1, v2;
  std::uint64_t offset = 0, size = 0;
  EXPECT_FALSE(damaged.FindBlock(damaged.blockRootOffset, entries[0].blockId, offset, size, v1));
  damaged.deepMode = true;
  ASSERT_TRUE(damaged.FindBlock(damaged.blockRootOffset, entries[0].blockId, offset, size, v2));
  EXPECT_EQ(offset, entries[0].fileOffset);
  EXPECT_EQ(size, entries[0].size);
}

}  // namespace
}  // namespace marrow
