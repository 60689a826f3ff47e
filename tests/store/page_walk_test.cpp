// The page test and the walks of both indexes, on synthetic stores of all three forms.
#include <tuple>

#include <gtest/gtest.h>

#include "store/store_reader.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::BranchRow;
using test::Form;
using test::NodeRow;
using test::StoreBuilder;
using test::Trailer;
using Ids = std::vector<std::uint64_t>;
// Whether a look-up found its row, and the row's two values.
using Hit = std::tuple<bool, std::uint64_t, std::uint64_t>;

std::unique_ptr<StoreReader> Open(const StoreBuilder& b) {
  auto reader = std::make_unique<StoreReader>();
  EXPECT_TRUE(reader->OpenSource(b.Source(), "built"));
  return reader;
}

Ids FolderIds(StoreReader& r) {
  Ids ids;
  for (const FolderRow& row : r.ReadFolderRows()) ids.push_back(row.nodeId);
  return ids;
}

Ids Messages(StoreReader& r, std::uint64_t folder) {
  Ids ids;
  VisitedSet visited;
  r.ListNodeChildren(r.NodeRoot(), folder, visited,
                     [&](std::uint64_t, std::uint64_t id, std::uint64_t) { ids.push_back(id); });
  return ids;
}

Hit Node(StoreReader& r, std::uint64_t id) {
  VisitedSet v;
  std::uint64_t data = 0, sub = 0;
  const bool found = r.FindNodeRow(r.NodeRoot(), id, data, sub, v) == 1;
  return {found, data, sub};
}

Hit Block(StoreReader& r, std::uint64_t id) {
  VisitedSet v;
  std::uint64_t offset = 0, size = 0;
  const bool found = r.FindBlock(r.BlockRoot(), id, offset, size, v);
  return {found, offset, size};
}

class EveryForm : public ::testing::TestWithParam<Form> {
 protected:
  std::uint64_t Page(int n) const { return 0x4000 + n * (GetParam() == Form::Unicode4096 ? 0x1000 : 0x200); }
};

INSTANTIATE_TEST_SUITE_P(Forms, EveryForm, ::testing::Values(Form::Ansi512, Form::Unicode512, Form::Unicode4096),
                         ::testing::PrintToStringParamName());

TEST_P(EveryForm, FindBlockDescendsOnePathOnly) {
  StoreBuilder b(GetParam());
  b.Branch(Page(0), false, 1, {{0x10, Page(1)}, {0x100, Page(2)}});
  b.BlockLeaf(Page(1), {{0x10, 0x1000, 100}, {0x14, 0x1200, 200}});
  b.BlockLeaf(Page(2), {{0x100, 0x2000, 300}, {0x104, 0x2400, 400}, {0x104, 0x2600, 500}});
  b.Roots(Page(3), Page(0));
  auto r = Open(b);
  EXPECT_EQ(Block(*r, 0x104), Hit(true, 0x2400, 400)) << "the first equal row wins";
  EXPECT_EQ(Block(*r, 0x100), Hit(true, 0x2000, 300)) << "a key equal to a branch key";
  EXPECT_EQ(Block(*r, 0x14), Hit(true, 0x1200, 200));
  EXPECT_FALSE(std::get<0>(Block(*r, 0x8))) << "below the first key of the root page";
  EXPECT_FALSE(std::get<0>(Block(*r, 0x18)));
  // A key that sorts into the first child but sits in the second is not found: no probing of
  // siblings.
  b.BlockLeaf(Page(1), {{0x10, 0x1000, 100}, {0x200, 0x1200, 200}});
  r = Open(b);
  EXPECT_FALSE(std::get<0>(Block(*r, 0x200)));
}

TEST_P(EveryForm, CyclesInEitherIndexEnd) {
  StoreBuilder b(GetParam());
  // Node index: a page pointing at itself and at a second page that points back.
  b.Branch(Page(0), true, 1, {{0x0, Page(0)}, {0x100, Page(1)}});
  b.Branch(Page(1), true, 1, {{0x100, Page(0)}, {0x200, Page(2)}});
  b.NodeLeaf(Page(2), {{0x222, 0x40, 0, 0x122}, {0x224, 0x44, 0, 0x222}, {0x261, 0x4C, 0, 0}, {0x261, 0x4E, 0x4F, 0}});
  // Block index: two branch pages pointing at each other.
  b.Branch(Page(3), false, 1, {{0x0, Page(4)}});
  b.Branch(Page(4), false, 1, {{0x0, Page(3)}});
  b.Roots(Page(0), Page(3));
  auto r = Open(b);
  EXPECT_EQ(FolderIds(*r), Ids{0x222});
  EXPECT_EQ(Messages(*r, 0x222), Ids{0x224});
  EXPECT_EQ(Node(*r, 0x224), Hit(true, 0x44, 0));
  EXPECT_EQ(Node(*r, 0x261), Hit(true, 0x4E, 0x4F)) << "the last equal row of a leaf wins";
  EXPECT_FALSE(std::get<0>(Node(*r, 0x999)));
  VisitedSet v;
  std::uint64_t off = 0, size = 0;
  EXPECT_FALSE(r->FindBlock(r->BlockRoot(), 0x40, off, size, v));
  EXPECT_EQ(v.size(), 2u) << "each page read once";
}

TEST_P(EveryForm, BrokenPagesDropAllTheirRows) {
  const bool ansi = GetParam() == Form::Ansi512;
  const int leafMax = ansi ? 31 : GetParam() == Form::Unicode512 ? 15 : 126;
  StoreBuilder b(GetParam());
  b.Branch(Page(0), true, 1, {{0, Page(1)}, {0x100, Page(2)}, {0x200, Page(3)}, {0x300, Page(4)}, {0x400, Page(5)}});
  b.NodeLeaf(Page(1), {{0x22, 1, 0, 0}}, Trailer{.max = leafMax - 1});
  b.NodeLeaf(Page(2), {{0x102, 1, 0, 0}}, Trailer{.count = leafMax + 1});
  b.NodeLeaf(Page(3), {{0x202, 1, 0, 0}}, Trailer{.type = 0x80});  // a block page in the node index
  b.NodeLeaf(Page(4), {{0x302, 1, 0, 0}}, Trailer{.size = ansi ? 12 : 24});
  b.NodeLeaf(Page(5), {{0x402, 1, 0, 0}});
  b.Roots(Page(0), Page(6));
  EXPECT_EQ(FolderIds(*Open(b)), Ids{0x402});
}

TEST_P(EveryForm, ForcedCheckTakesLeavesAsBlockPagesAndBranchRowsStayInTheFile) {
  StoreBuilder b(GetParam(), 0x10000);
  b.BlockLeaf(Page(0), {{0x40, 0x1000, 10}});
  b.NodeLeaf(Page(1), {{0x22, 0x40, 0, 0}});
  b.Branch(Page(2), true, 1, {{0x1, 0xFFFF}, {0x2, 0x10000}, {0x3, 0x20000}, {0x4, Page(1)}});
  auto r = Open(b);
  PageFields f;
  const auto blockPage = r->ReadAt(Page(0), b.PageSize());
  const auto nodePage = r->ReadAt(Page(1), b.PageSize());
  EXPECT_TRUE(r->CheckPage(blockPage, true, f));
  EXPECT_EQ(f.count, 1);
  EXPECT_FALSE(r->CheckPage(blockPage, false, f));
  EXPECT_TRUE(r->CheckPage(nodePage, false, f));
  EXPECT_FALSE(r->CheckPage(nodePage, true, f));

  Ids keys, offsets;
  r->CollectBranchRows(r->ReadAt(Page(2), b.PageSize()), 4, b.Ansi() ? 12 : 24, keys, offsets);
  EXPECT_EQ(keys, (Ids{0x1, 0x4})) << "children at or past the end are dropped";
  EXPECT_EQ(offsets, (Ids{0xFFFF, Page(1)}));
}

TEST(CheckPage, FullLeavesInTheSmallAndLargeForms) {
  // 31 rows of 16 bytes run into the trailer at 488: the count is cut to 30.
  StoreBuilder ansi(Form::Ansi512);
  std::vector<NodeRow> rows;
  for (std::uint32_t i = 0; i < 31; ++i) rows.push_back({0x22 + 0x20 * i, 0x40, 0, 0x122});
  ansi.NodeLeaf(0x4000, rows);
  ansi.Roots(0x4000, 0x4200);
  auto r = Open(ansi);
  const Ids ids = FolderIds(*r);
  ASSERT_EQ(ids.size(), 30u);
  EXPECT_EQ(ids.back(), 0x22u + 0x20 * 29);
  PageFields f;
  EXPECT_TRUE(r->CheckPage(r->ReadAt(0x4000, 512), false, f));
  EXPECT_EQ(f.count, 30);

  // 126 x 32 fits the whole 4096-byte page, whose counts are 16-bit.
  StoreBuilder large(Form::Unicode4096);
  for (std::uint32_t i = 31; i < 126; ++i) rows.push_back({0x22 + 0x20 * i, 0x40, 0, 0x122});
  large.NodeLeaf(0x4000, rows);
  large.Roots(0x4000, 0x5000);
  r = Open(large);
  EXPECT_EQ(FolderIds(*r).size(), 126u);
  const PageFields& last = r->LastLargePage();
  EXPECT_EQ(std::make_tuple(last.count, last.max, last.size, last.level), std::make_tuple(126, 126, 32, 0));
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
    const auto page = test::ReadFile<test::Buf>(test::Sample(c.file));
    for (const Case& form : cases) {
      StoreReader r;
      r.SetAnsi(form.isAnsi);
      r.SetLargePage(form.large);
      PageFields f;
      EXPECT_EQ(r.CheckPage(page, false, f), &form == &c)
          << c.file << " read as isAnsi=" << form.isAnsi << " large=" << form.large;
    }
  }
}

TEST(Walks, StopWhenCancelled) {
  struct CancelAfter : ProgressSink {
    int left;
    explicit CancelAfter(int n) : left(n) {}
    bool IsCancelled() override { return left-- <= 0; }
  };
  StoreBuilder b(Form::Unicode512);
  std::vector<BranchRow> children;
  for (std::uint32_t i = 0; i < 10; ++i) {
    children.push_back({i * 0x100, 0x4200u + 0x200u * i});
    b.NodeLeaf(0x4200 + 0x200 * i, {{0x22 + 0x100 * i, 0x40, 0, 0x122}, {0x24 + 0x100 * i, 0x40, 0, 0x122}});
  }
  b.Branch(0x4000, true, 1, children);
  b.Roots(0x4000, 0x8000);
  auto r = Open(b);
  EXPECT_EQ(FolderIds(*r).size(), 10u);
  EXPECT_EQ(Messages(*r, 0x122).size(), 10u);
  // The root costs 1 + 10 tests (one per child queued), each later page 2.
  CancelAfter sink(17);
  r->SetProgressSink(&sink);
  EXPECT_EQ(FolderIds(*r).size(), 3u);
  CancelAfter stopped(0);
  r->SetProgressSink(&stopped);
  EXPECT_TRUE(Messages(*r, 0x122).empty());
}

TEST(Walks, RootsOutsideTheFileFindNothing) {
  StoreBuilder b(Form::Ansi512, 0x8000);
  b.NodeLeaf(0x4000, {{0x22, 0x40, 0, 0}});
  b.Roots(0x8000, 0xFFFFFFFF);
  auto r = Open(b);
  EXPECT_TRUE(FolderIds(*r).empty());
  EXPECT_EQ(r->BlockRoot(), 0xFFFFFFFFFFFFFFFFull) << "32-bit roots are sign-extended";
  EXPECT_FALSE(std::get<0>(Block(*r, 0x40)));
}

TEST(FindBlockMemo, NeverAnswersAcrossAFormOrRootChange) {
  StoreBuilder b(Form::Unicode512);
  b.BlockLeaf(0x4000, {{0x40, 0x1000, 10}});
  b.BlockLeaf(0x4200, {{0x40, 0x2000, 20}});
  b.Roots(0x4400, 0x4000);
  auto r = Open(b);
  auto find = [&](std::uint64_t root, VisitedSet& v) {
    std::uint64_t off = 0, size = 0;
    return r->FindBlock(root, 0x40, off, size, v) ? off : 0;
  };
  VisitedSet v1, v2, v3, v4, v5, v6;
  EXPECT_EQ(find(0x4000, v1), 0x1000u);
  EXPECT_EQ(find(0x4200, v2), 0x2000u) << "another root is another index";
  r->SetAnsi(1);
  EXPECT_EQ(find(0x4200, v3), 0u) << "the page does not pass as a 32-bit page";
  r->SetAnsi(0);
  EXPECT_EQ(find(0x4000, v4), 0x1000u);
  EXPECT_EQ(find(0x4000, v5), 0x1000u);
  EXPECT_EQ(v5.size(), 0u) << "a second answer comes from the memo without reading the index";
  r->ForgetBlockLookups();
  EXPECT_EQ(find(0x4000, v6), 0x1000u);
  EXPECT_EQ(v6.size(), 1u);
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
