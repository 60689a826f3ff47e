// The sorted block index must answer exactly as a pass over the lists does:
// the first row in list order for one look-up, every row in order for all.
#include <random>
#include <unordered_map>

#include <gtest/gtest.h>

#include "store/lost_item_scanner.h"
#include "store/scan_block_index.h"
#include "store/store_reader.h"
#include "tests/support/disk_list_column.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

// The rows as plain columns; the answers by position, in list order.
struct Rows {
  std::vector<std::uint64_t> ids, offsets, sizes;

  std::vector<std::size_t> Positions(std::uint64_t id) const {
    if (byId.size() != ids.size()) {
      byId.clear();
      where.clear();
      for (std::size_t i = 0; i < ids.size(); ++i) where[ids[i]].push_back(i);
      byId.resize(ids.size());
    }
    auto at = where.find(id);
    return at == where.end() ? std::vector<std::size_t>{} : at->second;
  }
  bool First(std::uint64_t id, std::uint64_t& offset, std::uint64_t& size) const {
    const std::vector<std::size_t> p = Positions(id);
    if (p.empty()) return false;
    offset = offsets[p[0]];
    size = sizes[p[0]];
    return true;
  }
  void All(std::uint64_t id, std::vector<std::uint64_t>& o, std::vector<std::uint64_t>& s) const {
    for (std::size_t i : Positions(id)) {
      o.push_back(offsets[i]);
      s.push_back(sizes[i]);
    }
  }

  mutable std::vector<char> byId;  // sized like `ids` once `where` is built for them
  mutable std::unordered_map<std::uint64_t, std::vector<std::size_t>> where;
};

Rows ReadRows(LostItemScanner& scan) {
  Rows r{test::Column(scan.blockIds), test::Column(scan.blockOffsets), {}};
  scan.blockSizes.Rewind();
  std::uint16_t size = 0;
  while (scan.blockSizes.Next(&size)) r.sizes.push_back(size);
  return r;
}

void ExpectSameAnswers(ScanBlockIndex& index, const Rows& rows, const std::vector<std::uint64_t>& probes) {
  for (std::uint64_t id : probes) {
    std::uint64_t o1 = 0, s1 = 0, o2 = 0, s2 = 0;
    const bool want = rows.First(id, o1, s1);
    ASSERT_EQ(index.Find(id, o2, s2), want) << id;
    if (want) {
      ASSERT_EQ(o2, o1) << id;
      ASSERT_EQ(s2, s1) << id;
    }
    std::vector<std::uint64_t> wo, ws, go, gs;
    rows.All(id, wo, ws);
    index.FindAll(id, go, gs);
    ASSERT_EQ(go, wo) << id;
    ASSERT_EQ(gs, ws) << id;
  }
}

TEST(ScanBlockIndex, ManyRepeatsAcrossRunsAndFences) {
  StoreReader reader;
  LostItemScanner scan(reader);
  Rows rows;
  std::mt19937_64 random(7);
  auto append = [&](std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      // A small id range, so that ids repeat many times and runs of one id
      // cross both the sorted runs and the fence stretches.
      const std::uint64_t id = 4 * (random() % 400) + (i % 3 == 0 ? 0x7FFFFFFFFFFFFF00ull : 0);
      const std::uint64_t at = random() % 0x100000000ull;
      const std::uint16_t size = static_cast<std::uint16_t>(random());
      scan.blockIds.AppendU64(id);
      scan.blockOffsets.AppendU64(at);
      scan.blockSizes.Append(&size);
      rows.ids.push_back(id);
      rows.offsets.push_back(at);
      rows.sizes.push_back(size);
    }
  };
  std::vector<std::uint64_t> probes{0, 1, 3, 0xFFFFFFFFFFFFFFFFull};
  for (std::uint64_t k = 0; k < 402; ++k) {
    probes.push_back(4 * k);
    probes.push_back(4 * k + 0x7FFFFFFFFFFFFF00ull);
  }

  ScanBlockIndex index(301, 7);
  ScanBlockIndex empty;
  EXPECT_TRUE(empty.Update(scan.blockIds, scan.blockOffsets, scan.blockSizes));
  std::uint64_t o = 0, s = 0;
  EXPECT_FALSE(empty.Find(8, o, s));

  append(5000);
  ASSERT_TRUE(index.Update(scan.blockIds, scan.blockOffsets, scan.blockSizes));
  ExpectSameAnswers(index, rows, probes);
  // Rows appended later (a retry's scan) are taken in at the next look-up.
  append(777);
  ASSERT_TRUE(index.Update(scan.blockIds, scan.blockOffsets, scan.blockSizes));
  ExpectSameAnswers(index, rows, probes);
}

TEST(ScanBlockIndex, RealScansAnswerAsTheListsDo) {
  MARROW_REQUIRE_TESTDATA();
  for (const std::string& store : test::AllStores()) {
    SCOPED_TRACE(store);
    StoreReader reader;
    reader.OpenSource(std::make_unique<MemorySource>(test::ReadFileBytes(test::Sample(store))));
    LostItemScanner& scan = reader.Scanner();
    scan.ScanFile();
    const Rows rows = ReadRows(scan);
    std::vector<std::uint64_t> probes = rows.ids;
    for (std::uint64_t id : rows.ids) probes.push_back(id + 1);
    // Through the scanner (which keeps its own index) and a fresh one with
    // short runs, so that real ids also go through the merge.
    for (std::uint64_t id : probes) {
      std::uint64_t o1 = 0, s1 = 0, o2 = 0, s2 = 0;
      const bool want = rows.First(id, o1, s1);
      ASSERT_EQ(scan.ScanFindBlock(id, o2, s2), want) << id;
      if (want) ASSERT_EQ(std::make_pair(o2, s2), std::make_pair(o1, s1)) << id;
    }
    ScanBlockIndex shortRuns(97, 5);
    ASSERT_TRUE(shortRuns.Update(scan.blockIds, scan.blockOffsets, scan.blockSizes));
    ExpectSameAnswers(shortRuns, rows, probes);
  }
}

}  // namespace
}  // namespace marrow
