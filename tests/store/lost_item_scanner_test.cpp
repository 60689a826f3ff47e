// The whole-file scan: node rows from every node page, blocks from their
// trailers; and its sorted block index, which must answer exactly as a pass
// over the lists does: the first row in list order for one look-up, every
// row in order for all.
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "store/block_index_walk.h"
#include "store/lost_item_scanner.h"
#include "store/scan_block_index.h"
#include "store/store_reader.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::Form;
using test::StoreBuilder;
using Ids = std::vector<std::uint64_t>;

// One field of every scanned row, in list order.
template <typename Row, typename Field>
Ids Column(ScanRowList<Row>& rows, Field Row::*field) {
  Ids out;
  rows.Rewind();
  Row row;
  while (rows.Next(row)) out.push_back(row.*field);
  return out;
}

// Every row of an id, in list order: its offsets and sizes.
using Rows = std::map<std::uint64_t, std::pair<Ids, Ids>>;

Rows ReadRows(LostItemScanner& scan) {
  Rows rows;
  scan.blocks.Rewind();
  ScannedBlockRow row;
  while (scan.blocks.Next(row)) {
    rows[row.blockId].first.push_back(row.fileOffset);
    rows[row.blockId].second.push_back(row.size);
  }
  return rows;
}

void ExpectSameAnswers(ScanBlockIndex& index, const Rows& rows, const Ids& probes) {
  for (std::uint64_t id : probes) {
    const auto want = rows.find(id);
    std::uint64_t offset = 0, size = 0;
    ASSERT_EQ(index.Find(id, offset, size), want != rows.end()) << id;
    Ids offsets, sizes;
    index.FindAll(id, offsets, sizes);
    if (want == rows.end()) {
      ASSERT_TRUE(offsets.empty()) << id;
      continue;
    }
    ASSERT_EQ(offset, want->second.first[0]) << id;
    ASSERT_EQ(size, want->second.second[0]) << id;
    ASSERT_EQ(offsets, want->second.first) << id;
    ASSERT_EQ(sizes, want->second.second) << id;
  }
}

TEST(Scanner, RealStoresGiveEveryIndexedBlockAndNodeRowAndFindThemAgain) {
  MARROW_REQUIRE_TESTDATA();
  for (const std::string& store : test::AllStores()) {
    SCOPED_TRACE(store);
    auto reader = test::SampleReader(store);
    LostItemScanner& scan = reader->Scanner();
    scan.ScanFile();
    const Rows rows = ReadRows(scan);
    auto found = [&](const BlockEntry& e) {
      const auto at = rows.find(e.blockId);
      for (std::size_t i = 0; at != rows.end() && i < at->second.first.size(); ++i) {
        if (at->second.first[i] == e.fileOffset && at->second.second[i] == e.size) return true;
      }
      return false;
    };

    // An indexed block is missed only by the scan's own rules: its trailer lies
    // in a unit that every page testing it calls an index or map page (stale
    // page tails under live blocks do this), or, in the large form, its length
    // with a 16-byte trailer is one unit short of the 24-byte trailer's.
    const std::vector<std::uint8_t> bytes = test::ReadFile<test::Buf>(test::Sample(store));
    const bool large = reader->IsLargePage();
    const std::uint64_t unit = large ? 512 : 64, pageSize = large ? 4096 : 512;
    const std::uint64_t trailerBytes = large ? 24 : reader->IsAnsi() ? 12 : 16;
    auto typedPage = [&](std::uint64_t page) {
      if (page + pageSize > bytes.size()) return false;
      const std::size_t at = page + (large ? 0xFE8 : reader->IsAnsi() ? 0x1F4 : 0x1F0);
      return (large || bytes[at] == bytes[at + 1]) && bytes[at] >= 0x80 && bytes[at] <= 0x86;
    };
    std::size_t blocks = 0, missing = 0, explained = 0;
    ForEachBlockEntry(*reader, [&](const BlockEntry& e) {
      ++blocks;
      if (found(e)) return;
      ++missing;
      const std::uint64_t trailerUnit = e.fileOffset + (e.size + trailerBytes + unit - 1) / unit * unit - unit;
      const bool shortCount = large && (e.size + 16 + unit - 1) / unit != (e.size + 24 + unit - 1) / unit;
      // The pages that test the unit: its own and, in the large form, the seven
      // before it within the same 64 KiB chunk.
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

    std::set<std::uint64_t> scanned;
    for (std::uint64_t id : Column(scan.folders, &ScannedNodeRow::nodeId)) scanned.insert(id);
    for (std::uint64_t id : Column(scan.messages, &ScannedNodeRow::nodeId)) scanned.insert(id);
    std::size_t absent = 0;
    VisitedSet pages;
    reader->ForEachNodeEntry(reader->NodeRoot(), pages, [&](const NodeEntry& e) {
      const std::uint32_t kind = e.nodeId & kNodeTypeMask;
      if (kind == kNodeTypeFolder || kind == kNodeTypeMessage) absent += scanned.count(e.nodeId) == 0;
    });
    EXPECT_EQ(absent, 0u) << "indexed folder and message rows the scan missed";

    // Look-ups through the scanner, which keeps its own index, and through a
    // fresh index with short runs, so that real ids also go through the merge.
    Ids probes;
    for (const auto& [id, where] : rows) {
      probes.push_back(id);
      probes.push_back(id + 1);
    }
    for (std::uint64_t id : probes) {
      std::uint64_t offset = 0, size = 0;
      const auto want = rows.find(id);
      ASSERT_EQ(scan.ScanFindBlock(id, offset, size), want != rows.end()) << id;
      if (want != rows.end()) {
        ASSERT_EQ(std::make_pair(offset, size), std::make_pair(want->second.first[0], want->second.second[0]));
      }
    }
    ScanBlockIndex shortRuns(97, 5);
    ASSERT_TRUE(shortRuns.Update(scan.blocks));
    ExpectSameAnswers(shortRuns, rows, probes);
  }
}

TEST(Scanner, NodeRowsBehindTheCountAndRepeats) {
  StoreBuilder b(Form::Unicode512, 0x8000);
  // Four rows written, count set to 1: rows 2 to 4 are deleted but still there.
  b.NodeLeaf(0x4000, {{0x22, 0x40, 0, 0x122}, {0x44, 0x48, 0, 0x22}, {0x44, 0x48, 0, 0x22}, {0x64, 0x4C, 0, 0x22}},
             test::Trailer{.count = 1});
  b.NodeLeaf(0x4200, {{0x64, 0x4C, 0, 0x22}});
  StoreReader reader;
  reader.OpenSource(b.Source());
  LostItemScanner scan(reader);
  scan.ScanFile();
  EXPECT_EQ(Column(scan.folders, &ScannedNodeRow::nodeId), Ids{0x22});
  // Two equal rows in a row give one entry; the same row on another page gives another.
  EXPECT_EQ(Column(scan.messages, &ScannedNodeRow::nodeId), (Ids{0x44, 0x64, 0x64}));
  EXPECT_EQ(Column(scan.messages, &ScannedNodeRow::parent), (Ids{0x22, 0x22, 0x22}));
}

TEST(Scanner, BlockLeafRowsOfADeepWalkIncludeThoseBehindTheCount) {
  StoreBuilder b(Form::Unicode512, 0x8000);
  b.BlockLeaf(0x4000, {{0x104, 0x5000, 100}, {0x108, 0x5200, 200}, {0x10C, 0x5400, 300}}, test::Trailer{.count = 1});
  b.Branch(0x4200, false, 1, {{0x104, 0x4000}});
  StoreReader reader;
  reader.OpenSource(b.Source());
  LostItemScanner scan(reader);
  scan.ExtractBlockRows(reader.ReadAt(0x4000, 512));
  // Every slot of the leaf is read: the three rows, then the empty slots.
  const Ids ids = Column(scan.blocks, &ScannedBlockRow::blockId);
  ASSERT_EQ(ids.size(), 488u / 24);
  EXPECT_EQ(Ids(ids.begin(), ids.begin() + 4), (Ids{0x104, 0x108, 0x10C, 0}));
  EXPECT_EQ(Column(scan.blocks, &ScannedBlockRow::fileOffset)[2], 0x5400u);
  std::uint64_t offset = 0, size = 0;
  ASSERT_TRUE(scan.ScanFindBlock(0x10C, offset, size));
  EXPECT_EQ(size, 300u);
  LostItemScanner branch(reader);
  branch.ExtractBlockRows(reader.ReadAt(0x4200, 512));
  EXPECT_EQ(branch.blocks.RecordCount(), 0u) << "a branch page of the block index gives nothing";
}

TEST(Scanner, BlockTrailersBySignatureOrChecksum) {
  // The common CRC-32 of "123456789" is CBF43926, with inversions at both ends; ours has none.
  const std::vector<std::uint8_t> digits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(BlockChecksum(digits), 0x2DFD2D88u);
  EXPECT_EQ(BlockChecksum({}), 0u);

  StoreBuilder b(Form::Unicode512, 0x10000);
  // The trailer is the last 16 bytes of a block's units: size, check word, checksum, id.
  auto put = [&](std::uint64_t at, std::uint64_t id, std::size_t size, bool goodSignature, bool goodChecksum) {
    const std::uint64_t end = b.Block(at, id, std::vector<std::uint8_t>(size, 'a'));
    if (!goodSignature) b.Put(end - 14, {static_cast<std::uint8_t>(b.Bytes()[end - 14] ^ 1)});
    if (!goodChecksum) b.Put(end - 12, {static_cast<std::uint8_t>(b.Bytes()[end - 12] ^ 1)});
  };
  put(0x4000, 0x104, 100, true, false);
  put(0x4200, 0x108, 50, false, true);
  put(0x4400, 0x10C, 50, false, false);
  put(0x6000, 0x110, 0x2001, true, true);  // too big for this form
  StoreReader reader;
  reader.OpenSource(b.Source());
  LostItemScanner scan(reader);
  scan.ScanFile();
  EXPECT_EQ(Column(scan.blocks, &ScannedBlockRow::blockId), (Ids{0x104, 0x108}));
  std::uint64_t offset = 0, size = 0;
  ASSERT_TRUE(scan.ScanFindBlock(0x108, offset, size));
  EXPECT_EQ(offset, 0x4200u);
  EXPECT_EQ(size, 50u);
  EXPECT_FALSE(scan.ScanFindBlock(0x10C, offset, size));
}

TEST(ScanBlockIndex, ManyRepeatsAcrossRunsAndFences) {
  StoreReader reader;
  LostItemScanner scan(reader);
  std::mt19937_64 random(7);
  auto append = [&](std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      // A small id range, so that runs of one id cross both the sorted runs and the fence
      // stretches.
      const std::uint64_t id = 4 * (random() % 400) + (i % 3 == 0 ? 0x7FFFFFFFFFFFFF00ull : 0);
      const std::uint64_t offset = random() % 0x100000000ull;
      scan.blocks.Append({id, offset, static_cast<std::uint16_t>(random())});
    }
  };
  Ids probes{0, 1, 3, 0xFFFFFFFFFFFFFFFFull};
  for (std::uint64_t k = 0; k < 402; ++k) {
    probes.push_back(4 * k);
    probes.push_back(4 * k + 0x7FFFFFFFFFFFFF00ull);
  }
  ScanBlockIndex empty;
  EXPECT_TRUE(empty.Update(scan.blocks));
  std::uint64_t o = 0, s = 0;
  EXPECT_FALSE(empty.Find(8, o, s));

  ScanBlockIndex index(301, 7);
  append(5000);
  ASSERT_TRUE(index.Update(scan.blocks));
  ExpectSameAnswers(index, ReadRows(scan), probes);
  // Rows appended later (a retry's scan) are taken in at the next update.
  append(777);
  ASSERT_TRUE(index.Update(scan.blocks));
  ExpectSameAnswers(index, ReadRows(scan), probes);
}

}  // namespace
}  // namespace marrow
