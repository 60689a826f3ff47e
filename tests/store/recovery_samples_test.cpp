// The recovery on every healthy sample store, against pffexport run as a black
// box: its folder tree (tests/data/oracle/folder_counts.tsv) and its recovery
// pass (recovered_items.tsv, made by make_recovered_items.sh).
#include <cstdio>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "content/property_values.h"
#include "store/folder_items.h"
#include "tests/support/recovered_tree.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

std::uint64_t Hex(const std::string& s) {
  return std::stoull(s, nullptr, 16);
}

bool IsOrphanChild(const FolderRecord& f) {
  return f.parentId == kOrphanParentId && f.isLost;
}

// store -> folder path -> the NodeIds pffexport lists with that path.
using OraclePaths = std::map<std::string, std::map<std::string, std::set<std::uint64_t>>>;

// The folders that are not lost are pffexport's, under the same parents
// where a path names one folder. Returns how many parents were compared.
std::size_t CheckFolders(const test::Recovered& r,
                         std::map<std::string, std::set<std::uint64_t>>& paths) {
  std::set<std::uint64_t> expected;
  std::map<std::uint64_t, std::uint64_t> parentOf;
  for (const auto& [path, ids] : paths) {
    for (std::uint64_t id : ids) {
      // Search folders are not folder nodes, and the root has no name: the tree takes neither.
      if ((id & 31) != 2 || path == ".") continue;
      expected.insert(id);
      const std::size_t slash = path.rfind('/');
      const auto& up = paths[slash == std::string::npos ? "." : path.substr(0, slash)];
      if (ids.size() == 1 && up.size() == 1) parentOf[id] = *up.begin();
    }
  }
  std::set<std::uint64_t> ours;
  std::map<TreeItem, std::uint64_t> idOfItem;
  for (const FolderRecord& f : r.state.folders) {
    idOfItem[f.treeItem] = f.nodeId;
    if (f.isLost) continue;
    EXPECT_TRUE(ours.insert(f.nodeId).second) << "two rows for 0x" << std::hex << f.nodeId;
    // The two rows the rebuild makes up when the index has no such folder.
    if ((f.nodeId == kTopOfFoldersId && f.name == "IPM_SUBTREE") ||
        (f.nodeId == kDeletedItemsId && f.name == "Deleted Items")) {
      expected.insert(f.nodeId);
    }
  }
  EXPECT_EQ(ours, expected);
  std::size_t compared = 0;
  for (const FolderRecord& f : r.state.folders) {
    const auto want = parentOf.find(f.nodeId);
    if (f.isLost || want == parentOf.end()) continue;
    const TreeItem up = r.tree.Parent(f.treeItem);
    if (want->second == kRootFolderId) {
      EXPECT_EQ(up, r.root) << "0x" << std::hex << f.nodeId << " sits at the top";
    } else {
      EXPECT_EQ(idOfItem[up], want->second) << "parent of 0x" << std::hex << f.nodeId;
    }
    ++compared;
  }
  return compared;
}

// What the scan adds on one store, where it differs from pffexport's pass.
// The scan reads every slot of every node page, so old copies of a node with
// another data block show as lost rows. pffexport reports a stale message row
// only when neither its data block nor its subnode block is in use and both
// lie in space its allocation map calls free, at a place some block index
// page, current or stale, gives (found by blanking our 60 rows one at a time).
// Its "email" and "contact" items whose node id is a contents table (id & 31
// is 14 or 16) are old contents tables, not messages. Stores not listed: our
// lost rows are exactly the messages pffexport names.
struct ScanVerdict {
  const char* store;
  int lostRows;
  int moved;          // the data block is still indexed: the node lives on in another folder
  int sharedSubnode;  // the data block is gone, the subnode block is still the live node's
};
const ScanVerdict kScanVerdicts[] = {
    // pffexport names 0x214a44, 0x214d84; 0x213a24, 0x2145e4 unlisted, 0x214ac4 space in use again.
    {"ost/unicode512/aspose_SampleOstFile.ost", 10, 0, 5},
    // Eight Inbox rows unlisted; 0x200024 (free/busy): its subnode block's space is in use again.
    {"ost4k/aspose_Outlook.ost", 10, 0, 1},
    // pffexport names 0x214a44; 0x214d84 space in use again, 0x2145e4 unlisted.
    {"ost4k/aspose_SampleOstFile.ost", 3, 0, 0},
    // 0x214a44, 0x214d84: their old blocks lie in used space in this copy; 0x2145e4 unlisted.
    {"ost4k/aspose_SampleOstFile.uncompressed.ost", 3, 0, 0},
    // 0x200024: no index page lists its subnode block.
    {"ost4k/pstsdk_submessage.all-compressed.ost", 1, 0, 0},
    // pffexport's four contacts are old contents tables (0x80ae, 0x80030).
    {"pst/ansi/hiraoka_contacts97-2002.pst", 2, 0, 2},
    // pffexport: 0x200224, 0x200244, 0x200264 "unknown", 0x200024 "skipped"; 0x200144,
    // 0x200164, 0x200184, 0x2001e4 unlisted, 0x200204 space in use again; two old contents tables.
    {"pst/unicode/aspose_Outlook.pst", 10, 0, 1},
    // Ten messages moved from the Inbox to Deleted Items; pffexport names 0x200144, 0x2001a4.
    {"pst/unicode/aspose_passwordprotectedPST.pst", 12, 10, 0},
    // 0x200144 in Deleted Items (0x8042 here): unlisted.
    {"pst/unicode/pst2john_2003_high-encryption_quickquick.pst", 1, 0, 0},
    // 0x200024: its subnode block's space is in use again; its "email" is an old contents table.
    {"pst/unicode/pstsdk_submessage.pst", 1, 0, 0},
    // 0x200204 moved to FolderWithSampleMessages, 0x2000e4 shares its subnode block;
    // 0x200264 moved there from the Inbox and changed, its old data block unlisted.
    {"pst/unicode/tghanem_user1@test.lab.pst", 3, 1, 1},
};

struct PffItem {
  std::string kind;
  std::uint64_t nodeId;
  std::string name;
};

// The scan adds what pffexport's recovery pass finds, or the difference is
// one of the verdicts. Returns how many of its messages we name alike.
std::size_t CheckScan(const std::string& store, const test::Recovered& r, StoreReader& fresh,
                      const std::vector<PffItem>& pff) {
  struct LostRow {
    std::uint64_t nodeId, dataBlock, subnodeBlock;
  };
  std::vector<LostRow> rows;
  int lostFolders = 0, orphans = 0;
  for (const FolderRecord& f : r.state.folders) {
    ForEachFolderItem(*r.reader, r.state, f.nodeId, 1, [&](const FolderItem& item) {
      if (item.isLost) rows.push_back({item.nodeId, item.dataBlock, item.subnodeBlock});
    });
    lostFolders += f.isLost && f.nodeId != kOrphanParentId && !IsOrphanChild(f);
    orphans += IsOrphanChild(f);
  }
  // None of these stores lost a folder. pffexport's recovered folders are old
  // copies of folders the index still has, which the rebuild keeps once.
  EXPECT_EQ(lostFolders, 0);
  EXPECT_EQ(orphans, 0);
  std::set<std::uint64_t> indexFolders;
  for (const FolderRow& row : fresh.ReadFolderRows()) indexFolders.insert(row.nodeId);
  int pffMessages = 0;
  std::size_t named = 0;
  for (const PffItem& item : pff) {
    if (item.kind == "folder" && (item.nodeId & 31) == 2) {
      EXPECT_TRUE(indexFolders.count(item.nodeId)) << "folder 0x" << std::hex << item.nodeId;
    }
    if ((item.nodeId & 31) != 4) continue;
    // A message pffexport recovered is one of our lost rows, with its subject.
    ++pffMessages;
    bool found = false, sameSubject = false;
    for (const LostRow& row : rows) {
      if (row.nodeId != item.nodeId) continue;
      found = true;
      PropertyBag bag;
      sameSubject = sameSubject || (r.reader->ReadBagFromBlock(row.dataBlock, bag, {}) &&
                                    GetString(bag, 0x37, true) == item.name);
    }
    EXPECT_TRUE(found) << "0x" << std::hex << item.nodeId;
    EXPECT_TRUE(sameSubject) << "0x" << std::hex << item.nodeId << " " << item.name;
    named += sameSubject;
  }
  int moved = 0, sharedSubnode = 0;
  for (const LostRow& row : rows) {
    VisitedSet a, b;
    std::uint64_t offset = 0, size = 0;
    if (fresh.FindBlock(fresh.BlockRoot(), row.dataBlock, offset, size, a)) {
      ++moved;
    } else if (row.subnodeBlock != 0 &&
               fresh.FindBlock(fresh.BlockRoot(), row.subnodeBlock, offset, size, b)) {
      ++sharedSubnode;
    }
  }
  ScanVerdict want{store.c_str(), pffMessages, 0, 0};
  for (const ScanVerdict& v : kScanVerdicts) {
    if (store == v.store) want = v;
  }
  EXPECT_EQ(static_cast<int>(rows.size()), want.lostRows);
  EXPECT_EQ(moved, want.moved);
  EXPECT_EQ(sharedSubnode, want.sharedSubnode);
  return named;
}

// Every row has one live tree item of its name; the index lists each message
// once, first and in index order; the scan's rows follow, each data block at
// most once and none of the index's; orphan folders are numbered without gaps.
void CheckItemLists(const test::Recovered& r, StoreReader& fresh) {
  std::map<TreeItem, int> rowsOfItem;
  int orphanParents = 0;
  std::set<int> orphanNumbers;
  for (const FolderRecord& f : r.state.folders) {
    SCOPED_TRACE(f.name);
    ASSERT_NE(r.tree.Find(f.treeItem), nullptr) << "a row without a live tree item";
    EXPECT_EQ(r.tree.Find(f.treeItem)->text, f.name);
    ++rowsOfItem[f.treeItem];
    orphanParents += f.name == "Orphan Folder(s)";
    int n = 0;
    if (std::sscanf(f.name.c_str(), "Orphan Folder_%d", &n) == 1 && IsOrphanChild(f)) {
      EXPECT_TRUE(orphanNumbers.insert(n).second);
    }
    std::vector<std::pair<std::uint64_t, std::uint64_t>> index, listed;
    VisitedSet visited;
    fresh.ListNodeChildren(fresh.NodeRoot(), f.nodeId, visited,
                           [&](std::uint64_t data, std::uint64_t id, std::uint64_t) {
                             index.push_back({id, data});
                           });
    std::set<std::uint64_t> blocks;
    for (const auto& [id, data] : index) blocks.insert(data);
    std::size_t lost = 0;
    ForEachFolderItem(*r.reader, r.state, f.nodeId, 1, [&](const FolderItem& item) {
      if (!item.isLost) {
        EXPECT_EQ(lost, 0u) << "an index message after a lost row";
        listed.push_back({item.nodeId, item.dataBlock});
      } else {
        ++lost;
        EXPECT_TRUE(blocks.insert(item.dataBlock).second)
            << "data block 0x" << std::hex << item.dataBlock;
      }
    });
    EXPECT_EQ(listed, index);
  }
  std::size_t items = 0;
  r.tree.ForEachBelow(r.root, [&](TreeItem item, int) {
    ++items;
    EXPECT_EQ(rowsOfItem[item], 1) << "tree item " << r.tree.Find(item)->text;
  });
  EXPECT_EQ(items, r.state.folders.size());
  EXPECT_EQ(orphanParents, orphanNumbers.empty() ? 0 : 1);
  int next = 1;
  for (int n : orphanNumbers) EXPECT_EQ(n, next++) << "orphan folders are numbered without gaps";
}

TEST(RecoverySamples, TreeScanAndItemListsAgreeWithPffexport) {
  MARROW_REQUIRE_TESTDATA();
  OraclePaths paths;
  for (const auto& f : test::OracleTsv("folder_counts.tsv")) {
    if (f.size() == 5 && f[1] == "pffexport") paths[f[0]][f[3]].insert(Hex(f[2]));
  }
  std::map<std::string, std::vector<PffItem>> pff;
  for (const auto& f : test::OracleTsv("recovered_items.tsv")) {
    if (f.size() != 6) continue;
    auto& items = pff[f[0]];
    if (f[1] != "0") items.push_back({f[3], f[4] == "-" ? 0 : Hex(f[4]), f[5]});
  }
  ASSERT_GE(paths.size(), 35u) << "oracle data missing";
  ASSERT_EQ(pff.size(), test::AllStores().size()) << "oracle data missing";
  std::size_t parentsCompared = 0, named = 0;
  for (const std::string& store : test::AllStores()) {
    SCOPED_TRACE(store);
    ASSERT_TRUE(paths.count(store));
    const test::Recovered r = test::RecoverWith(test::SampleReader(store));
    auto fresh = test::SampleReader(store);  // the index alone, without the scan's lists
    parentsCompared += CheckFolders(r, paths[store]);
    named += CheckScan(store, r, *fresh, pff[store]);
    CheckItemLists(r, *fresh);
  }
  EXPECT_EQ(parentsCompared, 364u) << "every folder of the 35 stores";
  EXPECT_EQ(named, 9u) << "every message row pffexport names";
}

}  // namespace
}  // namespace marrow
