// The six-step recovery: the folders the node index still knows, what the
// whole-file scan adds, orphan folders for messages whose folder is gone,
// and the tree built from all of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "store/folder_tree.h"
#include "store/recovery_state.h"
#include "store/store_reader.h"

namespace marrow {

// Image index of a folder class in the tree's image list.
int IconForClass(const std::string& containerClass);
// Name (0x3001), container class (0x3613, "IPF.NOTE" when absent) and item
// count (0x3602) of a folder's property list.
void ReadFolderText(const PropertyBag& bag, std::string& name, std::string& containerClass, std::uint32_t& itemCount);

// Indexes of the rows of `folders` that are roots: parent 0, or a parent no
// row has. In row order.
void FindRootRows(const std::vector<FolderRecord>& folders, std::vector<std::size_t>& roots);

// One run of the driver over one reader and one tree item.
class FolderRebuild {
 public:
  // `state.rawMode` chooses the raw scan; the run fills the rest of `state`.
  FolderRebuild(StoreReader& reader, RecoveryState& state, TreeSink& tree, TreeItem root);

  // Always true; the results are in the state's `folders` and in the tree.
  // An empty `snapshotPath` means a normal run.
  bool RecoverStore(bool retryPass, const std::string& snapshotPath);

  void BuildTreeFromRows();
  void MergeScannedFolders();
  // Reads the first copy of a scanned folder block that carries a name.
  // `containerClass` keeps its value unless a copy with a name has a class.
  void ReadScannedFolder(std::uint64_t dataBlock, std::string& name, std::string& containerClass,
                         std::uint32_t& itemCount);
  // Inserts the rows whose parent is `parentId` under `parentItem`, and
  // their children below them. `done` holds row indexes already inserted.
  void AddChildFolders(std::uint64_t parentId, TreeItem parentItem, std::vector<bool>& done);

  const std::vector<TreeItem>& ExpandList() const { return expandList_; }

 private:
  bool Cancelled() { return reader_.Cancelled(); }
  // Inserts row `index` under `parentItem` (name, image, bold, expand list).
  TreeItem InsertFolder(std::size_t index, TreeItem parentItem);
  // Inserts every root and what lies below it.
  void InsertTree();
  void ExpandMarked();
  void AssureStandardFolders();
  void MergeRawScan();
  bool MergeFolderRows();
  void AddOrphanFolders();
  bool ScannedMessageHasParent(std::uint64_t folderId);

  StoreReader& reader_;
  RecoveryState& state_;
  TreeSink& tree_;
  TreeItem root_;
  bool fromSnapshot_ = false;
  std::vector<TreeItem> expandList_;
  std::unordered_set<std::uint64_t> triedOffsets_;
  // Rows by parent id, for the tree fill; built before each fill.
  std::unordered_map<std::uint64_t, std::vector<std::size_t>> children_;
  // Items one fill may still insert. A row is inserted once per root above
  // it, so only rows that repeat ids (a damaged index, a forged snapshot)
  // can make a fill outgrow its rows; this bounds what they can cost.
  std::size_t insertBudget_ = SIZE_MAX;
  // Rows AddChildFolders marked done, so that the next root starts afresh
  // without clearing the whole list.
  std::vector<std::size_t> marked_;
  // Distinct parents of the scanned messages, once read.
  std::vector<std::uint64_t> messageParents_;
  bool messageParentsRead_ = false;
};

// Runs the driver once: `FolderRebuild(reader, state, tree, root).RecoverStore(...)`.
bool RecoverStore(StoreReader& reader, RecoveryState& state, TreeSink& tree, TreeItem root, bool retryPass,
                  const std::string& snapshotPath = {});

}  // namespace marrow
