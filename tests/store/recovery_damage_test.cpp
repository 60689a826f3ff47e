// The six-step recovery over real stores that the test damages: the header
// zeroed, the roots of both indexes wiped, index pages wiped at random, the
// file cut in the middle, pages zeroed across the file, and two folders made
// each other's parent. Every copy must give a tree without harm.
//
// "Messages" are what the item list shows (ForEachFolderItem, mode 1): those
// the node index lists and the scanned (lost) rows, counted apart. Pinned
// figures, each with what it means, are held against the healthy file's; and
// relations hold for any damage: nothing is listed that the healthy file does
// not list, every message whose leaf came through intact is listed again, and
// every message no longer listed had its row on a damaged leaf.
#include <algorithm>
#include <deque>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "store/folder_items.h"
#include "store/page_layout.h"
#include "store/page_rows.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;
using Names = std::multiset<std::string>;

// What one recovery of a file gave, read the way the item list reads it.
struct Result {
  ScanOutcome outcome;
  int isAnsi = 0;
  bool isLargePage = false;
  std::vector<std::string> paths;  // every folder item as "/parent/child", sorted
  Names names;                     // the last part of every path
  std::size_t folders = 0;         // rows with a live tree item
  std::size_t lostFolders = 0;     // of those, rows the scan found or the rebuild made up
  std::size_t orphanFolders = 0;   // "Orphan Folder(s)" and its "Orphan Folder_N" rows
  std::size_t indexMessages = 0, lostMessages = 0;
  std::set<std::uint64_t> messageBlocks;            // data block of every listed message
  std::set<std::uint64_t> lostBlocks;               // the same for the lost rows only
  std::map<std::uint64_t, std::size_t> messagesOf;  // by folder node id
  std::map<std::uint64_t, std::uint64_t> parentOf;  // by folder node id

  std::size_t Messages() const { return indexMessages + lostMessages; }
};

// The recovery opens its source by path, so each copy is written out.
Result RecoverCopy(const test::TempFolder& dir, const Buf& bytes, const std::string& variant) {
  ScanRequest request;
  request.sourcePath = dir.Write(variant + ".pst", bytes);
  const test::Recovered r = test::ScanPath(request);
  Result out;
  out.outcome = r.outcome;
  out.isAnsi = r.reader->IsAnsi();
  out.isLargePage = r.reader->IsLargePage();
  for (const auto& [path, item] : r.Paths()) {
    out.paths.push_back(path);
    out.names.insert(path.substr(path.rfind('/') + 1));
  }
  std::sort(out.paths.begin(), out.paths.end());
  for (const FolderRecord& folder : r.state.folders) {
    if (r.tree.Find(folder.treeItem) == nullptr) continue;
    ++out.folders;
    out.lostFolders += folder.isLost;
    out.orphanFolders += folder.name == "Orphan Folder(s)" || folder.name.rfind("Orphan Folder_", 0) == 0;
    out.parentOf[folder.nodeId] = folder.parentId;
    std::size_t& count = out.messagesOf[folder.nodeId];
    ForEachFolderItem(*r.reader, r.state, folder.nodeId, 1, [&](const FolderItem& item) {
      ++count;
      ++(item.isLost ? out.lostMessages : out.indexMessages);
      out.messageBlocks.insert(item.dataBlock);
      if (item.isLost) out.lostBlocks.insert(item.dataBlock);
    });
  }
  std::filesystem::remove(request.sourcePath);
  return out;
}

// A row of a node-index leaf that the file's index reaches.
struct LeafRow {
  std::uint64_t pageOffset;
  std::uint64_t rowOffset;  // from the start of the file
  NodeEntry entry;
};

// The pages both indexes of a file reach, walked here from the roots rather
// than through the reader, and every row of the node leaves.
struct IndexMap {
  bool isAnsi = false, isLargePage = false;
  std::size_t pageSize = 0;
  std::uint64_t nodeRootOffset = 0, blockRootOffset = 0;
  std::vector<std::uint64_t> nodePages, blockPages;  // branches and leaves
  std::vector<LeafRow> rows;

  const LeafRow* RowOf(std::uint64_t nodeId) const {
    for (const LeafRow& row : rows) {
      if (row.entry.nodeId == nodeId) return &row;
    }
    return nullptr;
  }
  std::size_t MessageRows() const {
    return std::count_if(rows.begin(), rows.end(),
                         [](const LeafRow& row) { return (row.entry.nodeId & kNodeTypeMask) == kNodeTypeMessage; });
  }
};

void WalkIndex(const Buf& bytes, const IndexMap& map, std::uint64_t root, std::uint8_t type,
               std::vector<std::uint64_t>& pages, std::vector<LeafRow>* rows) {
  const PageLayout& layout = LayoutFor(map.isAnsi, map.isLargePage);
  std::deque<std::uint64_t> pending{root};
  std::set<std::uint64_t> seen;
  while (!pending.empty()) {
    const std::uint64_t offset = pending.front();
    pending.pop_front();
    if (!seen.insert(offset).second || offset + layout.pageSize > bytes.size()) continue;
    const Bytes page(bytes.data() + offset, layout.pageSize);
    const PageFields f = ReadPageFields(page, layout);
    if (f.type != type || f.size == 0) continue;
    pages.push_back(offset);
    const unsigned count = std::min<unsigned>(f.count, static_cast<unsigned>(layout.rowLimit / f.size));
    for (unsigned i = 0; i < count; ++i) {
      const Bytes row = RowAt(page, i, f.size);
      if (f.level > 0) {
        pending.push_back(ReadBranchEntry(row, map.isAnsi).childOffset);
      } else if (rows != nullptr) {
        rows->push_back({offset, offset + std::uint64_t{i} * f.size, ReadNodeEntry(row, map.isAnsi)});
      }
    }
  }
}

// `bytes` is read with the form and roots of `form` when given (a damaged
// copy may have lost its header), else with its own.
IndexMap MapIndexes(const Buf& bytes, const IndexMap* form = nullptr) {
  IndexMap map;
  if (form != nullptr) {
    map.isAnsi = form->isAnsi;
    map.isLargePage = form->isLargePage;
    map.nodeRootOffset = form->nodeRootOffset;
    map.blockRootOffset = form->blockRootOffset;
  } else {
    StoreReader reader;
    reader.OpenSource(std::make_unique<MemorySource>(bytes));
    map.isAnsi = reader.IsAnsi() != 0;
    map.isLargePage = reader.IsLargePage();
    map.nodeRootOffset = reader.NodeRoot();
    map.blockRootOffset = reader.BlockRoot();
  }
  map.pageSize = LayoutFor(map.isAnsi, map.isLargePage).pageSize;
  WalkIndex(bytes, map, map.nodeRootOffset, kPageTypeNodeIndex, map.nodePages, &map.rows);
  WalkIndex(bytes, map, map.blockRootOffset, kPageTypeBlockIndex, map.blockPages, nullptr);
  return map;
}

void ZeroPage(Buf& bytes, std::uint64_t offset, std::size_t pageSize) {
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), pageSize, 0);
}

Names Minus(const Names& a, const Names& b) {
  Names out;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(out, out.end()));
  return out;
}

// What one recovery of a damaged copy (or of the healthy file) must give.
struct Expected {
  int runs;
  std::size_t folders;        // visible rows, orphan rows included
  std::size_t lostFolders;    // of those, found by the scan or made up
  std::size_t orphanFolders;  // "Orphan Folder(s)" and "Orphan Folder_N" rows
  std::size_t indexMessages, lostMessages;
  Names missing;  // healthy folder names the tree no longer shows
  Names added;    // names it shows that the healthy tree does not
};

// One sample: what each damage leaves of it (tests/data/oracle/damage.tsv,
// with why). The zeroed header reads as the 32-bit form with both roots at 0,
// so only a scan in the right form finds rows: run 1 is the header's own
// (32-bit, 512), run 2 the other 32/64-bit form, run 5 (64-bit, 4096) after
// (64,512) and (32,512) again. With both index roots wiped the figures are
// those of the zeroed header, in one run. A quarter of the index pages is
// wiped with a fixed seed; the cut keeps the first half; every seventh page
// from page 3 is zeroed. The loop makes two folders each other's parent.
struct Case {
  std::string sample;
  std::map<std::string, Expected> damage;  // healthy, header, random, cut, seventh, loop
  std::uint32_t loopA = 0, loopB = 0;
};

std::vector<Case> LoadCases() {
  std::vector<Case> cases;
  auto names = [](const std::string& list) {
    Names out;
    std::stringstream parts(list == "-" ? "" : list);
    for (std::string name; std::getline(parts, name, ';');) out.insert(name);
    return out;
  };
  for (const auto& f : test::OracleRows("damage.tsv", 11)) {
    if (cases.empty() || cases.back().sample != f[0]) cases.push_back({f[0], {}});
    std::string damage = f[1];
    if (damage.rfind("loop:", 0) == 0) {
      cases.back().loopA = std::stoul(damage.substr(5, 6), nullptr, 16);
      cases.back().loopB = std::stoul(damage.substr(12), nullptr, 16);
      damage = "loop";
    }
    cases.back().damage[damage] = {std::stoi(f[2]),  std::stoul(f[3]), std::stoul(f[4]), std::stoul(f[5]),
                                   std::stoul(f[6]), std::stoul(f[7]), names(f[8]),      names(f[9])};
  }
  return cases;
}

void PrintTo(const Case& c, std::ostream* os) {
  *os << c.sample;
}

class DamagedCopies : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    MARROW_REQUIRE_TESTDATA();
    const Case& c = GetParam();
    bytes_ = test::ReadFile<test::Buf>(test::Sample(c.sample));
    map_ = MapIndexes(bytes_);
    healthy_ = RecoverCopy(dir_, bytes_, "healthy");
    ExpectFigures(healthy_, c.damage.at("healthy"));
  }

  void ExpectFigures(const Result& got, const Expected& want) const {
    EXPECT_TRUE(got.outcome.opened);
    EXPECT_EQ(got.outcome.runs, want.runs);
    EXPECT_EQ(got.folders, want.folders);
    EXPECT_EQ(got.lostFolders, want.lostFolders);
    EXPECT_EQ(got.orphanFolders, want.orphanFolders);
    EXPECT_EQ(got.indexMessages, want.indexMessages);
    EXPECT_EQ(got.lostMessages, want.lostMessages);
    EXPECT_EQ(Minus(healthy_.names, got.names), want.missing);
    EXPECT_EQ(Minus(got.names, healthy_.names), want.added);
  }

  // Recovers the damaged copy and holds it against `want` and against the healthy file.
  Result Check(const Buf& damaged, const std::string& variant, const Expected& want, bool related = true) {
    SCOPED_TRACE(variant);
    const Result got = RecoverCopy(dir_, damaged, variant);
    ExpectFigures(got, want);
    if (!related) return got;
    for (std::uint64_t block : got.messageBlocks) {
      EXPECT_TRUE(healthy_.messageBlocks.count(block)) << "listed message with data block " << block;
    }
    EXPECT_LE(got.Messages(), healthy_.Messages());
    // The scan reads every intact leaf, so each of its messages comes back,
    // under its folder or an orphan folder. A message no longer listed had
    // its live row on a damaged leaf, or was a deleted one only the scan found.
    std::set<std::uint64_t> intact, damagedLeaf;
    for (const LeafRow& row : map_.rows) {
      if ((row.entry.nodeId & kNodeTypeMask) != kNodeTypeMessage) continue;
      const auto from = bytes_.begin() + static_cast<std::ptrdiff_t>(row.pageOffset);
      const bool whole = row.pageOffset + map_.pageSize <= damaged.size() &&
                         std::equal(from, from + static_cast<std::ptrdiff_t>(map_.pageSize),
                                    damaged.begin() + static_cast<std::ptrdiff_t>(row.pageOffset));
      (whole ? intact : damagedLeaf).insert(row.entry.dataBlock);
    }
    for (std::uint64_t block : intact) {
      EXPECT_TRUE(got.messageBlocks.count(block)) << "message on an intact leaf lost, data block " << block;
    }
    for (std::uint64_t block : healthy_.messageBlocks) {
      EXPECT_TRUE(got.messageBlocks.count(block) || damagedLeaf.count(block) || healthy_.lostBlocks.count(block))
          << "message lost, data block " << block;
    }
    return got;
  }

  // Message rows the damaged copy's node index still reaches from its root.
  std::size_t ReachableMessageRows(const Buf& damaged) const { return MapIndexes(damaged, &map_).MessageRows(); }

  test::TempFolder dir_{"damage"};
  Buf bytes_;
  IndexMap map_;
  Result healthy_;
};

INSTANTIATE_TEST_SUITE_P(Samples, DamagedCopies, ::testing::ValuesIn(LoadCases()),
                         [](const ::testing::TestParamInfo<Case>& p) {
                           std::string name = p.param.sample.substr(0, p.param.sample.find('/'));
                           return name + std::to_string(p.index);
                         });

TEST_P(DamagedCopies, HeaderOrRootsGoneLeaveEverythingToTheScan) {
  const Case& c = GetParam();
  Buf header = bytes_;
  ZeroPage(header, 0, map_.pageSize);
  const Result fromHeader = Check(header, "header", c.damage.at("header"));
  EXPECT_EQ(fromHeader.isAnsi, map_.isAnsi ? 1 : 0);
  EXPECT_EQ(fromHeader.isLargePage, map_.isLargePage);
  // Every leaf survives, so every message is back (by content: the 32-bit sample's 294 are one
  // block).
  EXPECT_EQ(fromHeader.messageBlocks, healthy_.messageBlocks);

  // In all four samples both roots are branch pages, so every leaf survives.
  ASSERT_GT(map_.nodePages.size(), 1u);
  ASSERT_GT(map_.blockPages.size(), 1u);
  Buf roots = bytes_;
  ZeroPage(roots, map_.nodeRootOffset, map_.pageSize);
  ZeroPage(roots, map_.blockRootOffset, map_.pageSize);
  Expected sameAsHeader = c.damage.at("header");
  sameAsHeader.runs = 1;
  const Result fromRoots = Check(roots, "roots", sameAsHeader);
  EXPECT_EQ(fromRoots.lostFolders, fromRoots.folders);
  EXPECT_EQ(fromRoots.messageBlocks, healthy_.messageBlocks);
}

TEST_P(DamagedCopies, WipedCutOrZeroedPagesLoseOnlyWhatTheyHeld) {
  const Case& c = GetParam();
  std::vector<std::uint64_t> live = map_.nodePages;
  live.insert(live.end(), map_.blockPages.begin(), map_.blockPages.end());
  std::mt19937 rng(1);
  std::set<std::uint64_t> wiped;
  while (wiped.size() < (live.size() + 3) / 4) wiped.insert(live[rng() % live.size()]);
  Buf random = bytes_;
  for (std::uint64_t at : wiped) ZeroPage(random, at, map_.pageSize);

  const std::size_t half = bytes_.size() / 2 / map_.pageSize * map_.pageSize;
  const Buf cut(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(half));

  Buf seventh = bytes_;
  for (std::uint64_t at = 3 * map_.pageSize; at + map_.pageSize <= seventh.size(); at += 7 * map_.pageSize) {
    ZeroPage(seventh, at, map_.pageSize);
  }
  const struct {
    const char* variant;
    const Buf& damaged;
    const Expected& want;
  } runs[] = {{"random", random, c.damage.at("random")},
              {"cut", cut, c.damage.at("cut")},
              {"seventh", seventh, c.damage.at("seventh")}};
  for (const auto& run : runs) {
    SCOPED_TRACE(run.variant);
    EXPECT_EQ(Check(run.damaged, run.variant, run.want).indexMessages, ReachableMessageRows(run.damaged));
  }
}

TEST_P(DamagedCopies, ParentLoopKeepsItsRowsOutOfTheTree) {
  // Neither folder of the loop is a root, so neither is inserted, nor anything
  // below them; the scan's older rows of the two are skipped, their ids being
  // known, and so are their messages: no orphan folder for a known id.
  const Case& c = GetParam();
  Buf damaged = bytes_;
  for (const auto& [id, parent] : {std::pair{c.loopA, c.loopB}, std::pair{c.loopB, c.loopA}}) {
    const LeafRow* row = map_.RowOf(id);
    ASSERT_NE(row, nullptr);
    const std::uint64_t at = row->rowOffset + (map_.isAnsi ? 12 : 24);
    for (int k = 0; k < 4; ++k) damaged[at + k] = static_cast<std::uint8_t>(parent >> (8 * k));
  }
  const Result got = Check(damaged, "loop", c.damage.at("loop"), false);
  EXPECT_EQ(got.parentOf.count(c.loopA), 0u);
  EXPECT_EQ(got.parentOf.count(c.loopB), 0u);
  // The messages shown are the healthy ones less those of the two folders and every folder below
  // them.
  std::set<std::uint64_t> cut{c.loopA, c.loopB};
  for (bool grew = true; grew;) {
    grew = false;
    for (const auto& [id, parent] : healthy_.parentOf) grew = (cut.count(parent) && cut.insert(id).second) || grew;
  }
  std::size_t hidden = 0;
  for (std::uint64_t id : cut) {
    if (auto at = healthy_.messagesOf.find(id); at != healthy_.messagesOf.end()) hidden += at->second;
  }
  EXPECT_EQ(got.Messages(), healthy_.Messages() - hidden);
  EXPECT_EQ(got.folders, healthy_.folders - cut.size());
  // The other folders keep their places.
  for (const std::string& path : healthy_.paths) {
    bool underLoop = false;
    for (std::size_t at = 1; at <= path.size();) {
      const std::size_t end = std::min(path.find('/', at), path.size());
      underLoop = underLoop || c.damage.at("loop").missing.count(path.substr(at, end - at)) != 0;
      at = end + 1;
    }
    if (!underLoop) {
      EXPECT_TRUE(std::binary_search(got.paths.begin(), got.paths.end(), path)) << path;
    }
  }
}

}  // namespace
}  // namespace marrow
