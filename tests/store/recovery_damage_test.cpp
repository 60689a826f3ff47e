// The six-step recovery over real stores that the test damages: the header
// zeroed, the roots of both indexes wiped, index pages wiped at random, the
// file cut in the middle, pages zeroed across the file, and two folders made
// each other's parent. Every copy must give a tree without harm; the folders
// and messages it gives are held against the healthy file's.
//
// "Messages" are what the item list shows: for every folder in the tree, the
// items ForEachFolderItem hands on with saveDeletedMode 1, those the node
// index lists and the scanned (lost) rows counted apart.
//
// Two kinds of check are made. Pinned figures, each with what it means, for
// the four samples and the fixed damage. And relations that hold for any
// damage: nothing is listed that the healthy file does not list, every
// message whose leaf page came through the damage intact is listed again,
// and every message that is no longer listed had its row on a damaged leaf.
#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "store/folder_items.h"
#include "store/memory_tree.h"
#include "store/page_layout.h"
#include "store/page_rows.h"
#include "store/start_scan.h"
#include "store/store_reader.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;
using Names = std::multiset<std::string>;

// One store of each form. The 32-bit store copies one message throughout
// (see ZeroedHeaderIsFoundByTheLadder); the 64-bit store and the offline
// store keep deleted messages in index pages; the 4096-byte-page store has
// every page its indexes reach in its last 24 KiB.
constexpr const char* kAnsi = "pst/ansi/pst2john_97_outlook_pass12345.pst";
constexpr const char* kUnicode = "pst/unicode/aspose_Outlook.pst";
constexpr const char* kOst = "ost/unicode512/aspose_SampleOstFile.ost";
constexpr const char* kOst4k = "ost4k/go-pst_support.ost";

bool IsOrphanRow(const std::string& name) {
  return name == "Orphan Folder(s)" || name.rfind("Orphan Folder_", 0) == 0;
}

// What one recovery of a file gave, read the way the item list reads it.
struct Recovered {
  ScanOutcome outcome;
  int isAnsi = 0;
  bool isLargePage = false;
  std::vector<std::string> paths;  // every folder item as "/parent/child", sorted
  Names names;                     // the last part of every path
  std::size_t folders = 0;         // rows with a live tree item
  std::size_t lostFolders = 0;     // of those, rows the scan found or the rebuild made up
  std::size_t orphanFolders = 0;   // "Orphan Folder(s)" and its "Orphan Folder_N" rows
  std::size_t indexMessages = 0;
  std::size_t lostMessages = 0;
  std::set<std::uint64_t> messageBlocks;            // data block of every listed message
  std::set<std::uint64_t> lostBlocks;               // the same for the lost rows only
  std::map<std::uint64_t, std::size_t> messagesOf;  // by folder node id
  std::map<std::uint64_t, std::uint64_t> parentOf;  // by folder node id

  std::size_t Messages() const { return indexMessages + lostMessages; }
};

Recovered RecoverFile(const std::string& path) {
  Recovered out;
  StoreReader reader;
  MemoryTree tree;
  const TreeItem root = tree.AddRoot("source", 0);
  ScanRequest request;
  request.sourcePath = path;
  request.mode = kQuickScan;
  out.outcome = StartScan(reader, tree, root, request);
  out.isAnsi = reader.IsAnsi();
  out.isLargePage = reader.IsLargePage();

  std::vector<std::string> trail;
  tree.ForEachBelow(root, [&](TreeItem item, int depth) {
    trail.resize(static_cast<std::size_t>(depth - 1));
    trail.push_back(tree.Find(item)->text);
    std::string joined;
    for (const std::string& part : trail) joined += "/" + part;
    out.paths.push_back(joined);
    out.names.insert(trail.back());
  });
  std::sort(out.paths.begin(), out.paths.end());

  for (const FolderRecord& folder : reader.folders) {
    if (tree.Find(folder.treeItem) == nullptr) continue;
    ++out.folders;
    if (folder.isLost) ++out.lostFolders;
    if (IsOrphanRow(folder.name)) ++out.orphanFolders;
    out.parentOf[folder.nodeId] = folder.parentId;
    std::size_t& count = out.messagesOf[folder.nodeId];
    ForEachFolderItem(reader, folder.nodeId, 1, [&](const FolderItem& item) {
      ++count;
      ++(item.isLost ? out.lostMessages : out.indexMessages);
      out.messageBlocks.insert(item.dataBlock);
      if (item.isLost) out.lostBlocks.insert(item.dataBlock);
    });
  }
  return out;
}

// The recovery opens its source by path, so each damaged copy is written out.
Recovered RecoverCopy(const Buf& bytes, const std::string& sample, const std::string& variant) {
  // The pid keeps copies of tests that ctest runs side by side apart.
  std::string name = "marrow_recovery_damage_" + std::to_string(::getpid()) + "_" + sample + "_" + variant;
  std::replace(name.begin(), name.end(), '/', '_');
  const std::string path = (std::filesystem::path(::testing::TempDir()) / name).string();
  {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
  Recovered out = RecoverFile(path);
  std::filesystem::remove(path);
  return out;
}

// A row of a node-index leaf that the file's index reaches.
struct LeafRow {
  std::uint64_t pageOffset;
  std::uint64_t rowOffset;  // from the start of the file
  NodeEntry entry;
};

// The pages both indexes of a file reach, walked here from the header's
// roots rather than through the reader.
struct IndexMap {
  bool isAnsi = false;
  bool isLargePage = false;
  std::size_t pageSize = 0;
  std::uint64_t nodeRootOffset = 0;
  std::uint64_t blockRootOffset = 0;
  std::vector<std::uint64_t> nodePages;   // branches and leaves
  std::vector<std::uint64_t> blockPages;  // branches and leaves
  std::vector<LeafRow> rows;              // every row of the node leaves

  const LeafRow* RowOf(std::uint64_t nodeId) const {
    for (const LeafRow& row : rows) {
      if (row.entry.nodeId == nodeId) return &row;
    }
    return nullptr;
  }
};

void WalkIndex(const Buf& bytes, const PageLayout& layout, bool isAnsi, std::uint64_t root,
               std::uint8_t type, std::vector<std::uint64_t>& pages, std::vector<LeafRow>* rows) {
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
    const unsigned count =
        std::min<unsigned>(f.count, static_cast<unsigned>(layout.rowLimit / f.size));
    for (unsigned i = 0; i < count; ++i) {
      const Bytes row = RowAt(page, i, f.size);
      if (f.level > 0) {
        pending.push_back(ReadBranchEntry(row, isAnsi).childOffset);
      } else if (rows != nullptr) {
        rows->push_back({offset, offset + std::uint64_t{i} * f.size, ReadNodeEntry(row, isAnsi)});
      }
    }
  }
}

// `bytes` is read with the form and roots of `form` (the damaged copy may
// have lost its header).
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
    map.nodeRootOffset = reader.nodeRootOffset;
    map.blockRootOffset = reader.blockRootOffset;
  }
  const PageLayout& layout = LayoutFor(map.isAnsi, map.isLargePage);
  map.pageSize = layout.pageSize;
  WalkIndex(bytes, layout, map.isAnsi, map.nodeRootOffset, kPageTypeNodeIndex, map.nodePages,
            &map.rows);
  WalkIndex(bytes, layout, map.isAnsi, map.blockRootOffset, kPageTypeBlockIndex, map.blockPages,
            nullptr);
  return map;
}

bool IsMessage(const LeafRow& row) {
  return (row.entry.nodeId & kNodeTypeMask) == kNodeTypeMessage;
}

bool PageIntact(const Buf& healthy, const Buf& damaged, std::uint64_t at, std::size_t size) {
  if (at + size > damaged.size()) return false;
  const auto from = healthy.begin() + static_cast<std::ptrdiff_t>(at);
  return std::equal(from, from + static_cast<std::ptrdiff_t>(size),
                    damaged.begin() + static_cast<std::ptrdiff_t>(at));
}

// Data blocks of the healthy index's messages, split by whether their leaf
// page came through the damage byte for byte.
void SplitMessagesByLeaf(const IndexMap& map, const Buf& healthy, const Buf& damaged,
                         std::set<std::uint64_t>& intact, std::set<std::uint64_t>& damagedLeaf) {
  for (const LeafRow& row : map.rows) {
    if (!IsMessage(row)) continue;
    const bool whole = PageIntact(healthy, damaged, row.pageOffset, map.pageSize);
    (whole ? intact : damagedLeaf).insert(row.entry.dataBlock);
  }
}

// Message rows the damaged copy's node index still reaches from its root.
std::size_t ReachableMessageRows(const Buf& damaged, const IndexMap& healthyMap) {
  const IndexMap map = MapIndexes(damaged, &healthyMap);
  return static_cast<std::size_t>(std::count_if(map.rows.begin(), map.rows.end(), IsMessage));
}

void ZeroPage(Buf& bytes, std::uint64_t offset, std::size_t pageSize) {
  std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), pageSize, 0);
}

Names Minus(const Names& a, const Names& b) {
  Names out;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(out, out.end()));
  return out;
}

// The healthy file, its index pages and its recovery.
struct Baseline {
  std::string sample;
  Buf bytes;
  IndexMap map;
  Recovered healthy;
};

// Healthy figures: visible folders, index messages, lost messages. Every
// damaged figure below is read against these.
struct HealthyFigures {
  const char* sample;
  std::size_t folders, indexMessages, lostMessages;
};
constexpr HealthyFigures kHealthy[] = {
    {kAnsi, 13, 294, 0},     // 294 mails; the 181 deleted rows share the live rows' one data block
    {kUnicode, 20, 17, 10},  // 10 deleted messages the scan finds in index pages
    {kOst, 36, 92, 10},      // the same
    {kOst4k, 23, 17, 0},     // no deleted message rows survive in this store
};

Baseline LoadBaseline(const HealthyFigures& figures) {
  Baseline b;
  b.sample = figures.sample;
  b.bytes = test::ReadFileBytes(test::Sample(figures.sample));
  b.map = MapIndexes(b.bytes);
  // A copy: the recovery locks its source, and other tests read the samples.
  b.healthy = RecoverCopy(b.bytes, figures.sample, "healthy");
  EXPECT_EQ(b.healthy.outcome.runs, 1);
  EXPECT_EQ(b.healthy.folders, figures.folders);
  EXPECT_EQ(b.healthy.lostFolders, 0u);
  EXPECT_EQ(b.healthy.indexMessages, figures.indexMessages);
  EXPECT_EQ(b.healthy.lostMessages, figures.lostMessages);
  return b;
}

// What one damaged copy must give.
struct Expected {
  int runs;
  std::size_t folders;        // visible rows, orphan rows included
  std::size_t lostFolders;    // of those, found by the scan or made up
  std::size_t orphanFolders;  // "Orphan Folder(s)" and "Orphan Folder_N" rows
  std::size_t indexMessages;
  std::size_t lostMessages;
  Names missing;  // healthy folder names the tree no longer shows
  Names added;    // names it shows that the healthy tree does not
};

// Relations that hold for any damage.
void ExpectConsistent(const Baseline& b, const Buf& damaged, const Recovered& got) {
  // Nothing is listed that the healthy file does not list: no garbage rows.
  for (std::uint64_t block : got.messageBlocks) {
    EXPECT_TRUE(b.healthy.messageBlocks.count(block)) << "listed message with data block " << block;
  }
  EXPECT_LE(got.Messages(), b.healthy.Messages());
  std::set<std::uint64_t> intact, damagedLeaf;
  SplitMessagesByLeaf(b.map, b.bytes, damaged, intact, damagedLeaf);
  // The scan reads every intact leaf, so each of its messages comes back,
  // under its folder or under an orphan folder.
  for (std::uint64_t block : intact) {
    EXPECT_TRUE(got.messageBlocks.count(block))
        << "message on an intact leaf lost, data block " << block;
  }
  // A message no longer listed had its live row on a damaged leaf, or was a
  // deleted message only the scan found.
  for (std::uint64_t block : b.healthy.messageBlocks) {
    if (got.messageBlocks.count(block)) continue;
    EXPECT_TRUE(damagedLeaf.count(block) || b.healthy.lostBlocks.count(block))
        << "message lost, data block " << block;
  }
}

void ExpectRecovered(const Baseline& b, const Recovered& got, const Expected& want) {
  EXPECT_TRUE(got.outcome.opened);
  EXPECT_EQ(got.outcome.runs, want.runs);
  EXPECT_EQ(got.folders, want.folders);
  EXPECT_EQ(got.lostFolders, want.lostFolders);
  EXPECT_EQ(got.orphanFolders, want.orphanFolders);
  EXPECT_EQ(got.indexMessages, want.indexMessages);
  EXPECT_EQ(got.lostMessages, want.lostMessages);
  EXPECT_EQ(Minus(b.healthy.names, got.names), want.missing);
  EXPECT_EQ(Minus(got.names, b.healthy.names), want.added);
}

Names Plus(Names a, const Names& b) {
  a.insert(b.begin(), b.end());
  return a;
}

const Names kOrphanRows1 = {"Orphan Folder(s)", "Orphan Folder_1"};
// Folders of the offline store that the scan alone cannot name (see
// ZeroedHeaderIsFoundByTheLadder).
const Names kOstUnseenBlocks = {"Journal", "Server Failures", "Suggested Contacts", "sub1"};
// Every folder of the 4096-byte-page store.
// clang-format off
const Names kAll4kFolders = {
    "Attività", "Bozze", "Calendario", "Contatti", "Conversation Action Settings",
    "Deleted Items", "Deletions", "Drafts", "Journal", "Note", "Posta eliminata",
    "Posta in arrivo", "Posta in uscita", "Posta indesiderata", "Posta inviata", "Purges",
    "Recoverable Items", "Search Root", "Sent", "Sent Messages", "Top of Personal Folders",
    "Trash", "Versions"};
// clang-format on

// --- 1. The header zeroed -------------------------------------------------

TEST(RecoveryOfDamagedStores, ZeroedHeaderIsFoundByTheLadder) {
  MARROW_REQUIRE_TESTDATA();
  // A zeroed header reads as the 32-bit form with both roots at 0, so the
  // index gives nothing and every folder and message comes from the scan;
  // only a scan in the right form finds rows, so the run that finds the
  // tree tells which form the ladder reached: the header's own (32-bit,
  // 512) is run 1, the other 32/64-bit form run 2, and the ladder proper
  // then tries (64,512) (32,512) again before (64,4096) as run 5.
  const Expected kExpected[] = {
      // The sample copies one message 294 times: all 294 live rows and the
      // 181 deleted rows name one data block, and the scanned rows are
      // handed on once per data block and folder, so each of the four
      // folders holding mail shows one message.
      {1, 13, 13, 0, 0, 4, {}, {}},
      // All 27 messages. The scan takes the first row of a node in file
      // order: for the Inbox that is an old row whose data block (0x14d4)
      // the scan places at 0x10540, where only its trailer is left: the
      // trailer's check word matches, its checksum no longer does, and the
      // bytes there now belong to a later block of Calendar. So the Inbox,
      // with its 17 messages and SubInbox, shows as a second "Calendar".
      {2, 20, 20, 0, 0, 27, {"Inbox"}, {"Calendar"}},
      // All 102 messages. Four folders are missing: the trailers of their
      // current blocks lie in 512-byte units whose type bytes still say
      // "block index page" (left there by a page later overwritten), and
      // the scan does not test trailers in index pages, so the blocks are
      // never found. Messages of sub1 (25 + 3) go to Orphan Folder_1.
      {2, 34, 34, 2, 0, 102, kOstUnseenBlocks, kOrphanRows1},
      // Everything.
      {5, 23, 23, 0, 0, 17, {}, {}},
  };
  for (std::size_t i = 0; i < std::size(kHealthy); ++i) {
    const Baseline b = LoadBaseline(kHealthy[i]);
    SCOPED_TRACE(b.sample);
    Buf damaged = b.bytes;
    ZeroPage(damaged, 0, b.map.pageSize);
    const Recovered got = RecoverCopy(damaged, b.sample, "header");
    ExpectRecovered(b, got, kExpected[i]);
    ExpectConsistent(b, damaged, got);
    EXPECT_EQ(got.isAnsi, b.map.isAnsi ? 1 : 0);
    EXPECT_EQ(got.isLargePage, b.map.isLargePage);
    // Every leaf survives, so every message the healthy tree lists is back
    // (by content: the 32-bit sample's 294 are one block).
    EXPECT_EQ(got.messageBlocks, b.healthy.messageBlocks);
  }
}

// --- 2. Both index roots wiped ---------------------------------------------

TEST(RecoveryOfDamagedStores, WipedIndexRootsLeaveEverythingToTheScan) {
  MARROW_REQUIRE_TESTDATA();
  // The header is intact, so the first run has the right form. With both
  // roots gone the index lists nothing: every folder is a lost row and
  // every message a scanned row; the figures are those of the zeroed
  // header, for the same reasons.
  const Expected kExpected[] = {
      {1, 13, 13, 0, 0, 4, {}, {}},
      {1, 20, 20, 0, 0, 27, {"Inbox"}, {"Calendar"}},
      {1, 34, 34, 2, 0, 102, kOstUnseenBlocks, kOrphanRows1},
      {1, 23, 23, 0, 0, 17, {}, {}},
  };
  for (std::size_t i = 0; i < std::size(kHealthy); ++i) {
    const Baseline b = LoadBaseline(kHealthy[i]);
    SCOPED_TRACE(b.sample);
    // In all four samples both roots are branch pages, so every leaf survives.
    ASSERT_GT(b.map.nodePages.size(), 1u);
    ASSERT_GT(b.map.blockPages.size(), 1u);
    Buf damaged = b.bytes;
    ZeroPage(damaged, b.map.nodeRootOffset, b.map.pageSize);
    ZeroPage(damaged, b.map.blockRootOffset, b.map.pageSize);
    const Recovered got = RecoverCopy(damaged, b.sample, "roots");
    ExpectRecovered(b, got, kExpected[i]);
    ExpectConsistent(b, damaged, got);
    EXPECT_EQ(got.lostFolders, got.folders);
    // The scan alone recovers every message of the healthy tree by content.
    EXPECT_EQ(got.messageBlocks, b.healthy.messageBlocks);
  }
}

// --- 3. Index pages wiped at random ----------------------------------------

TEST(RecoveryOfDamagedStores, RandomIndexPagesWiped) {
  MARROW_REQUIRE_TESTDATA();
  // A quarter of the pages the two indexes reach, drawn with a fixed seed.
  const Names kOstRandomMissing = Plus(kOstUnseenBlocks, {"EFORMS REGISTRY", "Junk E-Mail", "Notes",
                                                          "Organization Forms", "Tasks", "sub2"});
  const Expected kExpected[] = {
      // The block-index root goes, so no folder name is read through the
      // index and all 13 come from the scan. The node root survives; four
      // leaves of 28 message rows go: 294 - 112 = 182. The scan adds none
      // (their rows all name the one data block already shown).
      {1, 13, 13, 0, 182, 0, {}, {}},
      // The node root goes: everything from the scan. Custom Folder 1 and 2
      // were only ever on a wiped leaf; the Inbox is misnamed as in the
      // zeroed header.
      {1, 18, 18, 0, 0, 27, {"Custom Folder 1", "Custom Folder 2", "Inbox"}, {"Calendar"}},
      // The node root goes: everything from the scan, and all 102 messages
      // survive somewhere. Lost: the four folders of the zeroed header, and
      // six whose rows were only on wiped leaves (EFORMS REGISTRY and its
      // Organization Forms, Junk E-Mail, Notes, Tasks, sub2). sub1 and sub2
      // give Orphan Folder_1 and _2.
      {1, 29, 29, 3, 0, 102, kOstRandomMissing, Plus(kOrphanRows1, {"Orphan Folder_2"})},
      // One block leaf and the node leaf that holds all 24 folder rows and
      // the Drafts' 6 messages go. The other leaf's 11 messages (Sent
      // Messages) are still listed by the index, under Orphan Folder_1.
      {1, 2, 2, 2, 11, 0, kAll4kFolders, kOrphanRows1},
  };
  for (std::size_t i = 0; i < std::size(kHealthy); ++i) {
    const Baseline b = LoadBaseline(kHealthy[i]);
    SCOPED_TRACE(b.sample);
    std::vector<std::uint64_t> live = b.map.nodePages;
    live.insert(live.end(), b.map.blockPages.begin(), b.map.blockPages.end());
    std::mt19937 rng(1);
    std::set<std::uint64_t> wiped;
    while (wiped.size() < (live.size() + 3) / 4) wiped.insert(live[rng() % live.size()]);
    Buf damaged = b.bytes;
    for (std::uint64_t at : wiped) ZeroPage(damaged, at, b.map.pageSize);
    const Recovered got = RecoverCopy(damaged, b.sample, "random");
    ExpectRecovered(b, got, kExpected[i]);
    ExpectConsistent(b, damaged, got);
    EXPECT_EQ(got.indexMessages, ReachableMessageRows(damaged, b.map));
  }
}

// --- 4. The file cut in the middle ------------------------------------------

TEST(RecoveryOfDamagedStores, FileCutInTheMiddle) {
  MARROW_REQUIRE_TESTDATA();
  const Expected kExpected[] = {
      // The index lies in the first half; it lists the 98 message rows of
      // the live leaves there (the other 196 are on leaves past the cut).
      {1, 13, 0, 0, 98, 0, {}, {}},
      // Every live page lies in the first half: nothing is lost.
      {1, 20, 0, 0, 17, 10, {}, {}},
      // Both roots lie past the cut: as with the zeroed header, but the 7
      // messages whose rows were only in the second half are gone.
      {1, 34, 34, 2, 0, 95, kOstUnseenBlocks, kOrphanRows1},
      // Every page this store's indexes reach lies in its last 24 KiB: the first
      // half holds data blocks but no node row, so no run of the ladder
      // finds a folder, and all six run.
      {6, 0, 0, 0, 0, 0, kAll4kFolders, {}},
  };
  for (std::size_t i = 0; i < std::size(kHealthy); ++i) {
    const Baseline b = LoadBaseline(kHealthy[i]);
    SCOPED_TRACE(b.sample);
    const std::size_t half = b.bytes.size() / 2 / b.map.pageSize * b.map.pageSize;
    const Buf damaged(b.bytes.begin(), b.bytes.begin() + static_cast<std::ptrdiff_t>(half));
    const Recovered got = RecoverCopy(damaged, b.sample, "cut");
    ExpectRecovered(b, got, kExpected[i]);
    ExpectConsistent(b, damaged, got);
    EXPECT_EQ(got.indexMessages, ReachableMessageRows(damaged, b.map));
  }
}

// --- 5. Pages zeroed across the file ----------------------------------------

TEST(RecoveryOfDamagedStores, EverySeventhPageZeroed) {
  MARROW_REQUIRE_TESTDATA();
  // Pages 3, 10, 17, ... of the store's page size: the header survives.
  const Names kUnicodeSeventhMissing = {"Junk E-mail", "RSS Feeds", "Tasks",
                                        "Top of Personal Folders"};
  const Names kOstSeventhMissing = Plus(
      kOstUnseenBlocks,
      {"Contacts", "Drafts", "Drizzle", "Local Failures", "NON_IPM_SUBTREE", "News Feed", "Tasks"});
  const Expected kExpected[] = {
      // Two leaves (21 message rows) go: 273. The leaf with 7 folder rows
      // and a leaf with 3 go; those 10 folders come back from older copies
      // of the same rows.
      {1, 13, 10, 0, 273, 0, {}, {}},
      // The blocks of Junk E-mail, RSS Feeds and Tasks are gone. The index
      // can no longer read the block of Top of Personal Folders, and the
      // rebuild stands in a made-up IPM_SUBTREE with the same node id; the
      // scan does find the real folder but skips it, as that id is taken,
      // so the subfolders sit under "IPM_SUBTREE". One deleted message had
      // its only row on a zeroed page.
      {1, 17, 8, 0, 17, 9, kUnicodeSeventhMissing, {"IPM_SUBTREE"}},
      // A zeroed branch cuts the index off from every folder leaf, so all
      // folders come from the scan; 78 message rows are still reached. Lost:
      // the four folders of the zeroed header, and seven whose rows or
      // blocks were zeroed; EFORMS REGISTRY, whose parent NON_IPM_SUBTREE is
      // gone, moves to the top. 10 messages had their rows on zeroed leaves.
      {1, 27, 27, 2, 78, 14, kOstSeventhMissing, kOrphanRows1},
      // Page 122 is the node leaf with all 24 folder rows and the Drafts'
      // 6 messages: as in the random wipe, only Sent Messages' 11 remain.
      {1, 2, 2, 2, 11, 0, kAll4kFolders, kOrphanRows1},
  };
  for (std::size_t i = 0; i < std::size(kHealthy); ++i) {
    const Baseline b = LoadBaseline(kHealthy[i]);
    SCOPED_TRACE(b.sample);
    Buf damaged = b.bytes;
    const std::size_t page = b.map.pageSize;
    for (std::uint64_t at = 3 * page; at + page <= damaged.size(); at += 7 * page)
      ZeroPage(damaged, at, page);
    const Recovered got = RecoverCopy(damaged, b.sample, "seventh");
    ExpectRecovered(b, got, kExpected[i]);
    ExpectConsistent(b, damaged, got);
    EXPECT_EQ(got.indexMessages, ReachableMessageRows(damaged, b.map));
  }
}

// --- 6. Two folders each other's parent -------------------------------------

void SetParent(Buf& bytes, const LeafRow& row, std::uint32_t parent, bool isAnsi) {
  const std::uint64_t at = row.rowOffset + (isAnsi ? 12 : 24);
  for (int k = 0; k < 4; ++k) bytes[at + k] = static_cast<std::uint8_t>(parent >> (8 * k));
}

TEST(RecoveryOfDamagedStores, ParentLoopKeepsItsRowsOutOfTheTree) {
  MARROW_REQUIRE_TESTDATA();
  // The live leaf rows of two folders are edited to name each other as
  // parent. Neither is then a root, so neither is inserted, nor anything
  // below them; the scan's older rows of the two are skipped, their ids
  // being known, and so are their messages: no orphan folder is made for a
  // known id. Everything else is as healthy.
  struct Loop {
    std::uint32_t a, b;
    Expected want;
  };
  const Loop kLoops[] = {
      // Outbox (5) and Sent Items (7): 294 - 12.
      {0x80a2, 0x80c2, {1, 11, 0, 0, 282, 0, {"Outbox", "Sent Items"}, {}}},
      // Inbox (8 + 9, and SubInbox below it) and Sent Items (6): 27 - 23.
      {0x8082, 0x80c2, {1, 17, 0, 0, 3, 1, {"Inbox", "Sent Items", "SubInbox"}, {}}},
      // sub1 (25 + 3) and sub2 (29 + 2): 102 - 59.
      {0x80a2, 0x80c2, {1, 34, 0, 0, 38, 5, {"sub1", "sub2"}, {}}},
      // Drafts (6) and Journal (0): 17 - 6.
      {0x8122, 0x8142, {1, 21, 0, 0, 11, 0, {"Drafts", "Journal"}, {}}},
  };
  for (std::size_t i = 0; i < std::size(kHealthy); ++i) {
    const Baseline b = LoadBaseline(kHealthy[i]);
    SCOPED_TRACE(b.sample);
    const Loop& loop = kLoops[i];
    const LeafRow* rowA = b.map.RowOf(loop.a);
    const LeafRow* rowB = b.map.RowOf(loop.b);
    ASSERT_NE(rowA, nullptr);
    ASSERT_NE(rowB, nullptr);
    Buf damaged = b.bytes;
    SetParent(damaged, *rowA, loop.b, b.map.isAnsi);
    SetParent(damaged, *rowB, loop.a, b.map.isAnsi);
    const Recovered got = RecoverCopy(damaged, b.sample, "loop");
    ExpectRecovered(b, got, loop.want);
    EXPECT_EQ(got.parentOf.count(loop.a), 0u);
    EXPECT_EQ(got.parentOf.count(loop.b), 0u);

    // The messages shown are the healthy ones less those of the two folders
    // and of every folder below them.
    std::set<std::uint64_t> cut{loop.a, loop.b};
    for (bool grew = true; grew;) {
      grew = false;
      for (const auto& [id, parent] : b.healthy.parentOf) {
        if (cut.count(parent) && cut.insert(id).second) grew = true;
      }
    }
    std::size_t hidden = 0;
    for (std::uint64_t id : cut) {
      if (auto at = b.healthy.messagesOf.find(id); at != b.healthy.messagesOf.end()) {
        hidden += at->second;
      }
    }
    EXPECT_EQ(got.Messages(), b.healthy.Messages() - hidden);
    EXPECT_EQ(got.folders, b.healthy.folders - cut.size());
    // The other folders keep their places.
    for (const std::string& path : b.healthy.paths) {
      bool underLoop = false;
      for (std::size_t at = 1; at <= path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        underLoop = underLoop || loop.want.missing.count(path.substr(at, end - at)) != 0;
        at = end + 1;
      }
      if (!underLoop) {
        EXPECT_TRUE(std::binary_search(got.paths.begin(), got.paths.end(), path)) << path;
      }
    }
  }
}

}  // namespace
}  // namespace marrow
