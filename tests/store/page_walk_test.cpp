// The page test and the walks of both indexes, on synthetic stores of all three forms.
#include <gtest/gtest.h>

#include "store/store_reader.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::BlockRow;
using test::BranchRow;
using test::Form;
using test::NodeRow;
using test::StoreBuilder;
using test::Trailer;

std::unique_ptr<StoreReader> Open(const StoreBuilder& b) {
  auto reader = std::make_unique<StoreReader>();
  EXPECT_TRUE(reader->OpenSource(b.Source(), "built"));
  return reader;
}

std::vector<std::uint64_t> FolderIds(StoreReader& r) {
  r.folderRows.clear();
  r.BuildFolderRows();
  std::vector<std::uint64_t> ids;
  for (const FolderRow& row : r.folderRows) ids.push_back(row.nodeId);
  return ids;
}

std::vector<std::uint64_t> Messages(StoreReader& r, std::uint64_t folder) {
  std::vector<std::uint64_t> ids;
  VisitedSet visited;
  r.ListNodeChildren(r.nodeRootOffset, folder, visited,
                     [&](std::uint64_t, std::uint64_t id, std::uint64_t) { ids.push_back(id); });
  return ids;
}

class EveryForm : public ::testing::TestWithParam<Form> {
 protected:
  std::uint64_t Page(int n) const { return 0x4000 + n * (GetParam() == Form::Unicode4096 ? 0x1000 : 0x200); }
};

INSTANTIATE_TEST_SUITE_P(Forms, EveryForm,
                         ::testing::Values(Form::Ansi512, Form::Unicode512, Form::Unicode4096),
                         [](const ::testing::TestParamInfo<Form>& p) {
                           return p.param == Form::Ansi512      ? std::string("Ansi512")
                                  : p.param == Form::Unicode512 ? std::string("Unicode512")
                                                                : std::string("Unicode4096");
                         });

TEST_P(EveryForm, TwoLevelNodeIndexGivesFoldersAndMessages) {
  StoreBuilder b(GetParam());
  b.Branch(Page(0), true, 1, {{0x21, Page(1)}, {0x8000, Page(2)}});
  b.NodeLeaf(Page(1), {{0x122, 0x40, 0, 0x122}, {0x124, 0x44, 0x48, 0x122}, {0x61, 0x4C, 0, 0}});
  b.NodeLeaf(Page(2), {{0x8022, 0x50, 0, 0x122}, {0x200024, 0x54, 0, 0x8022}, {0x200044, 0x58, 0, 0x8022},
                       {0x200064, 0x5C, 0, 0x122}, {0x200063, 0x60, 0, 0x8022}});
  b.Roots(Page(0), Page(3));
  auto r = Open(b);
  EXPECT_EQ(FolderIds(*r), (std::vector<std::uint64_t>{0x122, 0x8022}));
  EXPECT_EQ(r->folderRows[1].parent, 0x122u);
  EXPECT_EQ(r->folderRows[1].dataBlock, 0x50u);
  // Type 4 and the right parent only; type 3 (0x...63) is not a message.
  EXPECT_EQ(Messages(*r, 0x8022), (std::vector<std::uint64_t>{0x200024, 0x200044}));
  EXPECT_EQ(Messages(*r, 0x122), (std::vector<std::uint64_t>{0x124, 0x200064}));

  std::uint64_t data = 0, sub = 0;
  VisitedSet v1;
  EXPECT_EQ(r->FindNodeRow(r->nodeRootOffset, 0x124, data, sub, v1), 1);
  EXPECT_EQ(data, 0x44u);
  EXPECT_EQ(sub, 0x48u);
  VisitedSet v2;
  EXPECT_EQ(r->FindNodeRow(r->nodeRootOffset, 0x8022, data, sub, v2), 1);
  EXPECT_EQ(data, 0x50u);
  VisitedSet v3;
  EXPECT_EQ(r->FindNodeRow(r->nodeRootOffset, 0x999, data, sub, v3), 0);
}

TEST_P(EveryForm, FindBlockDescendsOnePathOnly) {
  StoreBuilder b(GetParam());
  b.Branch(Page(0), false, 1, {{0x10, Page(1)}, {0x100, Page(2)}});
  b.BlockLeaf(Page(1), {{0x10, 0x1000, 100}, {0x14, 0x1200, 200}});
  b.BlockLeaf(Page(2), {{0x100, 0x2000, 300}, {0x104, 0x2400, 400}});
  b.Roots(Page(3), Page(0));
  auto r = Open(b);
  auto find = [&](std::uint64_t id, std::uint64_t& off, std::uint64_t& size) {
    VisitedSet v;
    return r->FindBlock(r->blockRootOffset, id, off, size, v);
  };
  std::uint64_t off = 0, size = 0;
  ASSERT_TRUE(find(0x104, off, size));
  EXPECT_EQ(off, 0x2400u);
  EXPECT_EQ(size, 400u);
  ASSERT_TRUE(find(0x14, off, size));
  EXPECT_EQ(off, 0x1200u);
  EXPECT_FALSE(find(0x8, off, size)) << "below the first key of the root page";
  EXPECT_FALSE(find(0x18, off, size));
  // A key that sorts into the first child but sits in the second is not found:
  // there is no probing of siblings.
  b.BlockLeaf(Page(1), {{0x10, 0x1000, 100}, {0x200, 0x1200, 200}});
  r = Open(b);
  EXPECT_FALSE(find(0x200, off, size));
}

TEST_P(EveryForm, DuplicateRowsFirstForBlocksLastForNodes) {
  StoreBuilder b(GetParam());
  b.NodeLeaf(Page(0), {{0x124, 0x40, 0x1, 0x122}, {0x124, 0x44, 0x2, 0x122}});
  b.BlockLeaf(Page(1), {{0x40, 0x1000, 10}, {0x40, 0x2000, 20}});
  b.Roots(Page(0), Page(1));
  auto r = Open(b);
  std::uint64_t data = 0, sub = 0, off = 0, size = 0;
  VisitedSet v1, v2;
  EXPECT_EQ(r->FindNodeRow(r->nodeRootOffset, 0x124, data, sub, v1), 1);
  EXPECT_EQ(data, 0x44u);
  ASSERT_TRUE(r->FindBlock(r->blockRootOffset, 0x40, off, size, v2));
  EXPECT_EQ(off, 0x1000u);
}

TEST_P(EveryForm, CyclesInEitherIndexEnd) {
  StoreBuilder b(GetParam());
  // Node index: a page pointing at itself and at a second page that points back.
  b.Branch(Page(0), true, 1, {{0x0, Page(0)}, {0x100, Page(1)}});
  b.Branch(Page(1), true, 1, {{0x100, Page(0)}, {0x200, Page(2)}});
  b.NodeLeaf(Page(2), {{0x222, 0x40, 0, 0x122}, {0x224, 0x44, 0, 0x222}});
  // Block index: two branch pages pointing at each other.
  b.Branch(Page(3), false, 1, {{0x0, Page(4)}});
  b.Branch(Page(4), false, 1, {{0x0, Page(3)}});
  b.Roots(Page(0), Page(3));
  auto r = Open(b);
  EXPECT_EQ(FolderIds(*r), std::vector<std::uint64_t>{0x222});
  EXPECT_EQ(Messages(*r, 0x222), std::vector<std::uint64_t>{0x224});
  std::uint64_t data = 0, sub = 0, off = 0, size = 0;
  VisitedSet v1, v2;
  EXPECT_EQ(r->FindNodeRow(r->nodeRootOffset, 0x224, data, sub, v1), 1);
  EXPECT_FALSE(r->FindBlock(r->blockRootOffset, 0x40, off, size, v2));
  EXPECT_EQ(v2.size(), 2u) << "each page read once";
}

TEST_P(EveryForm, BrokenPagesDropAllTheirRows) {
  const bool ansi = GetParam() == Form::Ansi512;
  const int leafMax = ansi ? 31 : GetParam() == Form::Unicode512 ? 15 : 126;
  StoreBuilder b(GetParam());
  b.Branch(Page(0), true, 1, {{0, Page(1)}, {0x100, Page(2)}, {0x200, Page(3)}, {0x300, Page(4)}, {0x400, Page(5)}});
  b.NodeLeaf(Page(1), {{0x22, 1, 0, 0}}, Trailer{.max = leafMax - 1});  // wrong maximum
  b.NodeLeaf(Page(2), {{0x102, 1, 0, 0}}, Trailer{.count = leafMax + 1});  // count above maximum
  b.NodeLeaf(Page(3), {{0x202, 1, 0, 0}}, Trailer{.type = 0x80});  // block page in the node index
  b.NodeLeaf(Page(4), {{0x302, 1, 0, 0}}, Trailer{.size = ansi ? 12 : 24});  // wrong entry size
  b.NodeLeaf(Page(5), {{0x402, 1, 0, 0}});
  b.Roots(Page(0), Page(6));
  auto r = Open(b);
  EXPECT_EQ(FolderIds(*r), std::vector<std::uint64_t>{0x402});
}

TEST_P(EveryForm, ForcedCheckTakesLeavesAsBlockPages) {
  StoreBuilder b(GetParam());
  b.BlockLeaf(Page(0), {{0x40, 0x1000, 10}});
  b.NodeLeaf(Page(1), {{0x22, 0x40, 0, 0}});
  auto r = Open(b);
  PageFields f;
  auto blockPage = r->ReadAt(Page(0), b.PageSize());
  auto nodePage = r->ReadAt(Page(1), b.PageSize());
  EXPECT_TRUE(r->CheckPage(blockPage, true, f));
  EXPECT_EQ(f.count, 1);
  EXPECT_FALSE(r->CheckPage(blockPage, false, f));
  EXPECT_TRUE(r->CheckPage(nodePage, false, f));
  EXPECT_FALSE(r->CheckPage(nodePage, true, f));
}

TEST_P(EveryForm, BranchRowsAtOrPastTheEndAreDropped) {
  StoreBuilder b(GetParam(), 0x10000);
  b.Branch(Page(0), true, 1, {{0x1, 0xFFFF}, {0x2, 0x10000}, {0x3, 0x20000}, {0x4, Page(1)}});
  auto r = Open(b);
  auto page = r->ReadAt(Page(0), b.PageSize());
  std::vector<std::uint64_t> keys, offsets;
  r->CollectBranchRows(page, 4, GetParam() == Form::Ansi512 ? 12 : 24, keys, offsets);
  EXPECT_EQ(keys, (std::vector<std::uint64_t>{0x1, 0x4}));
  EXPECT_EQ(offsets, (std::vector<std::uint64_t>{0xFFFF, Page(1)}));
}

TEST(CheckPage, ThirtyFirstRowOfAFullAnsiLeafIsLost) {
  // 31 rows of 16 bytes run into the trailer at 488; the count is cut to 30.
  StoreBuilder b(Form::Ansi512);
  std::vector<NodeRow> rows;
  for (std::uint32_t i = 0; i < 31; ++i) rows.push_back({0x22 + 0x20 * i, 0x40, 0, 0x122});
  b.NodeLeaf(0x4000, rows);
  b.Roots(0x4000, 0x4200);
  auto r = Open(b);
  auto ids = FolderIds(*r);
  ASSERT_EQ(ids.size(), 30u);
  EXPECT_EQ(ids.back(), 0x22u + 0x20 * 29);
  PageFields f;
  EXPECT_TRUE(r->CheckPage(r->ReadAt(0x4000, 512), false, f));
  EXPECT_EQ(f.count, 30);
}

TEST(CheckPage, LargePagesUseWideCountsAndRecordTheirFields) {
  StoreBuilder b(Form::Unicode4096);
  std::vector<NodeRow> rows;
  for (std::uint32_t i = 0; i < 126; ++i) rows.push_back({0x22 + 0x20 * i, 0x40, 0, 0x122});
  b.NodeLeaf(0x4000, rows);
  b.Roots(0x4000, 0x5000);
  auto r = Open(b);
  EXPECT_EQ(FolderIds(*r).size(), 126u) << "126 x 32 fits the whole 4096-byte page";
  EXPECT_EQ(r->pageEntryCount, 126);
  EXPECT_EQ(r->pageEntryMax, 126);
  EXPECT_EQ(r->pageEntrySize, 32);
  EXPECT_EQ(r->pageLevel, 0);
}

TEST(CheckPage, RealIndexPagesPassOnlyInTheirOwnForm) {
  MARROW_REQUIRE_TESTDATA();
  struct Case {
    const char* file;
    int isAnsi;
    bool large;
  } cases[] = {{"fragments/libpff/index_node.1", 1, false},
               {"fragments/libpff/index_node.2", 0, false},
               {"fragments/libpff/index_node.3", 0, true}};
  for (const Case& c : cases) {
    auto page = test::ReadFileBytes(test::Sample(c.file));
    for (const Case& form : cases) {
      StoreReader r;
      r.SetAnsi(form.isAnsi);
      r.SetLargePage(form.large);
      PageFields f;
      EXPECT_EQ(r.CheckPage(page, false, f), &form == &c || (form.isAnsi == c.isAnsi && form.large == c.large))
          << c.file << " read as isAnsi=" << form.isAnsi << " large=" << form.large;
    }
  }
}

TEST(DescendBranch, PicksTheChildBeforeTheFirstLargerKey) {
  StoreBuilder b(Form::Unicode512);
  b.Branch(0x4000, false, 1, {{0x10, 0x1000}, {0x20, 0x2000}, {0x30, 0x3000}});
  auto r = Open(b);
  auto page = r->ReadAt(0x4000, 512);
  std::vector<std::uint64_t> offs, keys;
  EXPECT_EQ(r->DescendBranch(page, 3, 24, 0x05, 1, offs, keys), 0u);
  EXPECT_EQ(r->DescendBranch(page, 3, 24, 0x10, 1, offs, keys), 0x1000u);
  EXPECT_EQ(r->DescendBranch(page, 3, 24, 0x2F, 1, offs, keys), 0x2000u);
  EXPECT_EQ(r->DescendBranch(page, 3, 24, 0x99, 1, offs, keys), 0x3000u);
  EXPECT_TRUE(offs.empty());
  EXPECT_EQ(r->DescendBranch(page, 3, 24, 0, 0, offs, keys), 0x3000u);
  EXPECT_EQ(offs, (std::vector<std::uint64_t>{0x1000, 0x2000, 0x3000}));
  EXPECT_EQ(keys, (std::vector<std::uint64_t>{0x10, 0x20, 0x30}));
}

TEST(Walks, StopWhenCancelledOrAskedToStopListing) {
  struct CancelAfter : ProgressSink {
    int left;
    explicit CancelAfter(int n) : left(n) {}
    bool IsCancelled() override { return left-- <= 0; }
  };
  StoreBuilder b(Form::Unicode512);
  std::vector<BranchRow> children;
  for (int i = 0; i < 10; ++i) {
    children.push_back({static_cast<std::uint64_t>(i) * 0x100, 0x4200u + 0x200u * i});
    b.NodeLeaf(0x4200 + 0x200 * i, {{static_cast<std::uint32_t>(0x22 + 0x100 * i), 0x40, 0, 0x122},
                                    {static_cast<std::uint32_t>(0x24 + 0x100 * i), 0x40, 0, 0x122}});
  }
  b.Branch(0x4000, true, 1, children);
  b.Roots(0x4000, 0x8000);
  auto r = Open(b);
  EXPECT_EQ(FolderIds(*r).size(), 10u);
  EXPECT_EQ(Messages(*r, 0x122).size(), 10u);
  // The root costs 1 + 10 tests (one per child queued), each later page 2.
  CancelAfter sink(17);
  r->SetProgressSink(&sink);
  auto partial = FolderIds(*r).size();
  EXPECT_EQ(partial, 3u);
  r->SetProgressSink(nullptr);
  r->stopListing = true;
  EXPECT_TRUE(Messages(*r, 0x122).empty());
}

TEST(Walks, RootsOutsideTheFileFindNothing) {
  StoreBuilder b(Form::Ansi512, 0x8000);
  b.NodeLeaf(0x4000, {{0x22, 0x40, 0, 0}});
  b.Roots(0x8000, 0xFFFFFFFF);
  auto r = Open(b);
  EXPECT_TRUE(FolderIds(*r).empty());
  EXPECT_EQ(r->blockRootOffset, 0xFFFFFFFFFFFFFFFFull) << "32-bit roots are sign-extended";
  std::uint64_t off = 0, size = 0;
  VisitedSet v;
  EXPECT_FALSE(r->FindBlock(r->blockRootOffset, 0x40, off, size, v));
}

}  // namespace
}  // namespace marrow

namespace marrow {
namespace {

TEST(FindBlockMemo, NeverAnswersAcrossAFormOrRootChange) {
  test::StoreBuilder b(test::Form::Unicode512);
  b.BlockLeaf(0x4000, {{0x40, 0x1000, 10}});
  b.BlockLeaf(0x4200, {{0x40, 0x2000, 20}});
  b.Roots(0x4400, 0x4000);
  StoreReader r;
  ASSERT_TRUE(r.OpenSource(b.Source()));
  auto find = [&](std::uint64_t root, std::uint64_t& off) {
    VisitedSet v;
    std::uint64_t size = 0;
    return r.FindBlock(root, 0x40, off, size, v);
  };
  std::uint64_t off = 0;
  ASSERT_TRUE(find(0x4000, off));
  EXPECT_EQ(off, 0x1000u);
  ASSERT_TRUE(find(0x4200, off)) << "another root is another index";
  EXPECT_EQ(off, 0x2000u);
  r.SetAnsi(1);
  EXPECT_FALSE(find(0x4200, off)) << "the page does not pass as a 32-bit page";
  r.SetAnsi(0);
  ASSERT_TRUE(find(0x4000, off));
  EXPECT_EQ(off, 0x1000u);
  // A second answer from the memo is the same as the first.
  VisitedSet v;
  std::uint64_t size = 0;
  ASSERT_TRUE(r.FindBlock(0x4000, 0x40, off, size, v));
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(v.size(), 0u) << "answered without reading the index";
  r.ForgetBlockLookups();
  ASSERT_TRUE(r.FindBlock(0x4000, 0x40, off, size, v));
  EXPECT_EQ(v.size(), 1u);
}

TEST(VisitedSet, SmallAndLargeAlike) {
  VisitedSet v;
  for (std::uint64_t i = 0; i < 100; ++i) EXPECT_TRUE(v.Add(i * 512));
  for (std::uint64_t i = 0; i < 100; ++i) EXPECT_FALSE(v.Add(i * 512));
  EXPECT_EQ(v.size(), 100u);
  EXPECT_TRUE(v.Contains(99 * 512));
  EXPECT_FALSE(v.Contains(7));
}

}  // namespace
}  // namespace marrow
