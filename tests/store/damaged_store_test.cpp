// Real stores damaged by the test: cut short, index pages wiped, bytes flipped.
// The reader must never crash and must still give what the damage left.
#include <random>

#include <gtest/gtest.h>

#include "store/block_index_walk.h"
#include "store/store_summary.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;

const char* const kStores[] = {"pst/ansi/pst2john_97_outlook_pass12345.pst", "pst/unicode/aspose_Outlook.pst",
                               "ost4k/aspose_SampleOstFile.ost"};

StoreSummary Inspect(Buf bytes, StoreReader* keep = nullptr) {
  StoreReader reader;
  StoreReader& r = keep ? *keep : reader;
  r.OpenSource(std::make_unique<MemorySource>(std::move(bytes)));
  return SummarizeStore(r);
}

// Offsets of every page the store's indexes reach, found on the healthy file.
std::vector<std::uint64_t> IndexPages(const Buf& bytes) {
  StoreReader r;
  r.OpenSource(std::make_unique<MemorySource>(bytes));
  const std::size_t pageSize = r.IsLargePage() ? 4096 : 512;
  std::vector<std::uint64_t> pages;
  for (std::uint64_t at = 0; at + pageSize <= bytes.size(); at += pageSize) {
    const std::uint8_t type = bytes[at + (r.IsLargePage() ? 0xFE8 : r.IsAnsi() ? 0x1F4 : 0x1F0)];
    if (type == 0x80 || type == 0x81) pages.push_back(at);
  }
  return pages;
}

TEST(DamagedStores, CutShortGivesWhatIsLeft) {
  MARROW_REQUIRE_TESTDATA();
  for (const char* store : kStores) {
    SCOPED_TRACE(store);
    const Buf healthy = test::ReadFileBytes(test::Sample(store));
    const StoreSummary whole = Inspect(healthy);
    for (double fraction : {0.01, 0.25, 0.5, 0.75, 0.999}) {
      Buf cut(healthy.begin(), healthy.begin() + static_cast<std::ptrdiff_t>(healthy.size() * fraction));
      const StoreSummary part = Inspect(cut);
      EXPECT_LE(part.folders.size(), whole.folders.size()) << fraction;
      EXPECT_LE(part.TotalMessages(), whole.TotalMessages()) << fraction;
      if (whole.nodeRootOffset >= cut.size()) {
        EXPECT_TRUE(part.folders.empty()) << fraction;
      }
    }
  }
}

TEST(DamagedStores, WipedRootPages) {
  MARROW_REQUIRE_TESTDATA();
  for (const char* store : kStores) {
    SCOPED_TRACE(store);
    const Buf healthy = test::ReadFileBytes(test::Sample(store));
    const StoreSummary whole = Inspect(healthy);
    const std::size_t pageSize = whole.isLargePage ? 4096 : 512;

    Buf noNodeRoot = healthy;
    std::fill_n(noNodeRoot.begin() + whole.nodeRootOffset, pageSize, 0);
    EXPECT_TRUE(Inspect(noNodeRoot).folders.empty());

    // With the block index gone the folders are still listed from the node
    // index, but no folder's block can be read, so nobody votes.
    Buf noBlockRoot = healthy;
    std::fill_n(noBlockRoot.begin() + whole.blockRootOffset, pageSize, 0);
    const StoreSummary blind = Inspect(noBlockRoot);
    EXPECT_EQ(blind.folders.size(), whole.folders.size());
    EXPECT_EQ(blind.TotalMessages(), whole.TotalMessages());
    EXPECT_EQ(blind.noneVotes + blind.permuteVotes + blind.cyclicVotes, 0);
  }
}

TEST(DamagedStores, RandomIndexPagesWipedOrScrambled) {
  MARROW_REQUIRE_TESTDATA();
  std::mt19937 rng(20261123);
  for (const char* store : kStores) {
    SCOPED_TRACE(store);
    const Buf healthy = test::ReadFileBytes(test::Sample(store));
    const StoreSummary whole = Inspect(healthy);
    const std::vector<std::uint64_t> pages = IndexPages(healthy);
    ASSERT_GT(pages.size(), 3u);
    const std::size_t pageSize = whole.isLargePage ? 4096 : 512;
    for (int round = 0; round < 12; ++round) {
      Buf damaged = healthy;
      for (int k = 0; k < 3; ++k) {
        const std::uint64_t at = pages[rng() % pages.size()];
        if (round % 2 == 0) {
          std::fill_n(damaged.begin() + at, pageSize, 0);
        } else {
          // Scramble rows and trailer: child offsets, counts and types go wild.
          for (int b = 0; b < 40; ++b) damaged[at + rng() % pageSize] = static_cast<std::uint8_t>(rng());
        }
      }
      StoreReader r;
      const StoreSummary s = Inspect(damaged, &r);
      // A scrambled leaf may show garbage rows, at most a page's worth each.
      EXPECT_LE(s.folders.size(), whole.folders.size() + 3 * 126) << round;
      // Every block the damaged index still names can be read without harm.
      ForEachBlockEntry(r, [&](const BlockEntry& e) {
        MemorySink out(1 << 20);
        r.ReadDataTreeInto(e.blockId, out);
        EXPECT_LE(out.Data().size(), 1u << 20);
      });
    }
  }
}

TEST(DamagedStores, ZeroedHeaderStartsInTheAnsiFormAndFindsNothing) {
  MARROW_REQUIRE_TESTDATA();
  Buf bytes = test::ReadFileBytes(test::Sample("pst/unicode/aspose_Outlook.pst"));
  std::fill_n(bytes.begin(), 512, 0);
  StoreReader r;
  const StoreSummary s = Inspect(bytes, &r);
  EXPECT_EQ(r.IsAnsi(), 1);
  EXPECT_TRUE(s.folders.empty());
}

}  // namespace
}  // namespace marrow
