// The recovery on every healthy sample store, against pffexport run as a black
// box: its folder tree (tests/data/oracle/folder_counts.tsv) and its recovery
// pass (recovered_items.tsv, made by make_oracle.py recovered_items).
#include <cstdio>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "content/property_values.h"
#include "store/folder_items.h"
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
std::size_t CheckFolders(const test::Recovered& r, std::map<std::string, std::set<std::uint64_t>>& paths) {
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
// tests/data/oracle/scan_verdicts.tsv: per store, our lost rows, of them how
// many have a data block still indexed (the node lives on in another folder)
// and how many a gone data block but the live node's subnode block, and why.

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
      sameSubject = sameSubject ||
                    (r.reader->ReadBagFromBlock(row.dataBlock, bag, {}) && GetString(bag, 0x37, true) == item.name);
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
    } else if (row.subnodeBlock != 0 && fresh.FindBlock(fresh.BlockRoot(), row.subnodeBlock, offset, size, b)) {
      ++sharedSubnode;
    }
  }
  std::vector<int> want = {pffMessages, 0, 0};
  for (const auto& v : test::OracleRows("scan_verdicts.tsv", 5)) {
    if (v[0] == store) want = {std::stoi(v[1]), std::stoi(v[2]), std::stoi(v[3])};
  }
  EXPECT_EQ((std::vector<int>{static_cast<int>(rows.size()), moved, sharedSubnode}), want);
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
        EXPECT_TRUE(blocks.insert(item.dataBlock).second) << "data block 0x" << std::hex << item.dataBlock;
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
  for (const auto& f : test::OracleRows("folder_counts.tsv")) {
    if (f.size() == 5 && f[1] == "pffexport") paths[f[0]][f[3]].insert(Hex(f[2]));
  }
  std::map<std::string, std::vector<PffItem>> pff;
  for (const auto& f : test::OracleRows("recovered_items.tsv")) {
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
