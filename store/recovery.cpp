#include "store/recovery.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "store/ascii_case.h"
#include "store/lost_item_scanner.h"
#include "store/property_bag.h"
#include "store/property_text.h"
#include "store/snapshot.h"

namespace marrow {
namespace {

constexpr std::uint16_t kDisplayName = 0x3001;
constexpr std::uint16_t kContentCount = 0x3602;
constexpr std::uint16_t kContainerClass = 0x3613;
constexpr const char* kDefaultClass = "IPF.NOTE";
// More distinct parents than this are looked up in the disk list itself.
constexpr std::size_t kMaxParentsInMemory = std::size_t{1} << 22;

}  // namespace

void ReadFolderText(const PropertyBag& bag, std::string& name, std::string& containerClass, std::uint32_t& itemCount) {
  name = GetString(bag, kDisplayName, false);
  containerClass = GetString(bag, kContainerClass, false);
  if (containerClass.empty()) containerClass = kDefaultClass;
  itemCount = GetU32(bag, kContentCount);
}

int IconForClass(const std::string& containerClass) {
  static const struct {
    const char* text;
    int image;
  } kIcons[] = {{"IPF.NOTE", 10},   {"IPF.TASK", 8},   {"IPF.CONTACT", 11},
                {"IPF.APPOINT", 1}, {"IPF.STICKY", 5}, {"IPF.JOURNA", 4}};
  const std::string upper = AsciiUpper(containerClass);
  for (const auto& icon : kIcons) {
    if (upper.find(icon.text) != std::string::npos) return icon.image;
  }
  return 10;
}

void FindRootRows(const std::vector<FolderRecord>& folders, std::vector<std::size_t>& roots) {
  std::unordered_set<std::uint64_t> ids;
  for (const FolderRecord& f : folders) ids.insert(f.nodeId);
  for (std::size_t i = 0; i < folders.size(); ++i) {
    if (folders[i].parentId == 0 || ids.count(folders[i].parentId) == 0) roots.push_back(i);
  }
}

FolderRebuild::FolderRebuild(StoreReader& reader, RecoveryState& state, TreeSink& tree, TreeItem root)
    : reader_(reader), state_(state), tree_(tree), root_(root) {}

bool RecoverStore(StoreReader& reader, RecoveryState& state, TreeSink& tree, TreeItem root, bool retryPass,
                  const std::string& snapshotPath) {
  return FolderRebuild(reader, state, tree, root).RecoverStore(retryPass, snapshotPath);
}

bool FolderRebuild::RecoverStore(bool retryPass, const std::string& snapshotPath) {
  ProgressSink& sink = reader_.Sink();
  sink.SetStepLine("Step 1 of 6...");
  fromSnapshot_ = !snapshotPath.empty();
  // Until the scan has run (or a snapshot brought its lists), look-ups read the indexes alone.
  reader_.SetScanIndex(nullptr);
  state_.folderRows.clear();
  auto finish = [&] {
    sink.SetStepLine("");
    sink.SetExplainLine("");
    return true;
  };

  if (fromSnapshot_) {
    ReadSnapshotBody(reader_, state_, snapshotPath);
    reader_.SetScanIndex(&reader_.Scanner());
    reader_.LoadNameMap();
    BuildTreeFromRows();
    return finish();
  }
  if (!state_.rawMode) {
    state_.folderRows = reader_.ReadFolderRows();
    reader_.LoadNameMap();
    BuildTreeFromRows();
  }
  if (Cancelled()) return finish();

  reader_.SetScanIndex(&reader_.Scanner());
  sink.SetStepLine("Step 2 of 6");
  sink.SetStatusLine("If you do not want to recover lost/deleted data then you can skip this process.");
  if (!retryPass && tree_.FirstChild(root_) != 0) {
    sink.SetExplainLine(
        "Searching for Lost/Deleted folder(s) and item(s). If you do not want to recover lost/deleted "
        "data then you can skip this process.");
    sink.SetButtonText("Skip");
    sink.SetSkipMode(true);
  } else {
    sink.SetExplainLine("Searching for Lost/Deleted folder(s) and item(s).");
  }
  reader_.Scanner().ScanFile();
  reader_.LoadNameMap();

  if (Cancelled()) {
    // Skip or Cancel: the tree of the first step stays, the scan is not merged.
    sink.SetStepLine("");
    sink.SetExplainLine("");
    sink.SetButtonText("Cancel");
    sink.SetSkipMode(false);
    return true;
  }
  sink.SetStepLine("Step 3 of 6...");
  MergeScannedFolders();
  sink.SetButtonText("Cancel");
  sink.SetSkipMode(false);
  return finish();
}

void FolderRebuild::AssureStandardFolders() {
  std::vector<FolderRecord>& folders = state_.folders;
  if (folders.empty()) return;
  auto has = [&](std::uint64_t id) {
    return std::any_of(folders.begin(), folders.end(), [id](const FolderRecord& f) { return f.nodeId == id; });
  };
  if (!has(kTopOfFoldersId)) folders.push_back({"IPM_SUBTREE", kDefaultClass, kTopOfFoldersId, 0, 0});
  if (!has(kDeletedItemsId)) {
    folders.push_back({"Deleted Items", kDefaultClass, kDeletedItemsId, kTopOfFoldersId, 0});
  }
}

void FolderRebuild::BuildTreeFromRows() {
  if (!fromSnapshot_) {
    const SubnodeLists none;
    for (const FolderRow& row : state_.folderRows) {
      if (Cancelled()) break;
      PropertyBag bag;
      if (!reader_.ReadBagFromBlock(row.dataBlock, bag, none)) continue;
      FolderRecord record;
      ReadFolderText(bag, record.name, record.containerClass, record.itemCount);
      if (record.name.empty()) continue;
      record.nodeId = row.nodeId;
      record.parentId = row.parent;
      state_.folders.push_back(std::move(record));
    }
  }
  AssureStandardFolders();
  InsertTree();
  ExpandMarked();
}

TreeItem FolderRebuild::InsertFolder(std::size_t index, TreeItem parentItem) {
  if (insertBudget_ > 0) --insertBudget_;
  FolderRecord& row = state_.folders[index];
  const TreeItem item = tree_.InsertSorted(parentItem, row.name, IconForClass(row.containerClass));
  reader_.Sink().SetStatusLine(row.name);
  tree_.Expand(parentItem);
  if (row.itemCount > 0) tree_.SetBold(item);
  const std::string upper = AsciiUpper(row.name);
  if (upper == "IPM_SUBTREE" || upper == "TOP OF PERSONAL FOLDERS" || upper == "TOP OF OUTLOOK DATA FILE") {
    expandList_.push_back(item);
  }
  row.treeItem = item;
  return item;
}

void FolderRebuild::AddChildFolders(std::uint64_t parentId, TreeItem parentItem, std::vector<bool>& done) {
  const std::vector<FolderRecord>& folders = state_.folders;
  if (children_.empty()) {
    for (std::size_t i = 0; i < folders.size(); ++i) children_[folders[i].parentId].push_back(i);
  }
  done.resize(folders.size(), false);
  // Depth first, with an explicit stack: a chain of folders from a damaged
  // file may be as long as the file has folder rows.
  struct Level {
    const std::vector<std::size_t>* rows;
    std::size_t next;
    TreeItem item;
  };
  static const std::vector<std::size_t> kNoRows;
  auto rowsOf = [&](std::uint64_t id) {
    auto at = children_.find(id);
    return at == children_.end() ? &kNoRows : &at->second;
  };
  std::vector<Level> stack{{rowsOf(parentId), 0, parentItem}};
  while (!stack.empty()) {
    Level& level = stack.back();
    if (level.next >= level.rows->size()) {
      stack.pop_back();
      continue;
    }
    if (Cancelled() || insertBudget_ == 0) return;
    const std::size_t i = (*level.rows)[level.next++];
    if (done[i]) continue;
    const TreeItem item = InsertFolder(i, level.item);
    done[i] = true;
    marked_.push_back(i);
    stack.push_back({rowsOf(folders[i].nodeId), 0, item});
  }
}

void FolderRebuild::InsertTree() {
  children_.clear();
  insertBudget_ = 4 * state_.folders.size() + 1024;
  std::vector<std::size_t> roots;
  FindRootRows(state_.folders, roots);
  // Each root starts with only itself done; the list is shared and reset
  // row by row, as a damaged file may have as many roots as rows.
  std::vector<bool> done(state_.folders.size(), false);
  for (std::size_t i : roots) {
    if (Cancelled() || insertBudget_ == 0) break;
    const TreeItem item = InsertFolder(i, root_);
    marked_.assign(1, i);
    done[i] = true;
    AddChildFolders(state_.folders[i].nodeId, item, done);
    for (std::size_t m : marked_) done[m] = false;
  }
}

void FolderRebuild::ExpandMarked() {
  tree_.Expand(root_);
  for (TreeItem item : expandList_) {
    for (TreeItem at = item; at != 0; at = tree_.Parent(at)) tree_.Expand(at);
  }
}

void FolderRebuild::MergeScannedFolders() {
  if (state_.rawMode) {
    MergeRawScan();
    return;
  }
  triedOffsets_.clear();
  if (!MergeFolderRows()) return;
  AddOrphanFolders();

  // Step 5: the tree again, from all rows.
  while (TreeItem child = tree_.FirstChild(root_)) tree_.DeleteItem(child);
  expandList_.clear();
  reader_.Sink().SetStepLine("Step 5 of 6...");
  InsertTree();

  reader_.Sink().SetStepLine("Step 6 of 6...");
  ExpandMarked();
}

void FolderRebuild::MergeRawScan() {
  if (reader_.Scanner().messages.RecordCount() == 0) return;
  const TreeItem item = tree_.InsertSorted(root_, "All Emails", IconForClass(kDefaultClass));
  FolderRecord row{"All Emails", kDefaultClass, kOrphanParentId, 0, 0, item, true};
  state_.folders.push_back(std::move(row));
  tree_.Expand(root_);
}

bool FolderRebuild::MergeFolderRows() {
  ScannedNodeList& rows = reader_.Scanner().folders;
  rows.Rewind();
  std::unordered_set<std::uint64_t> knownIds, seenIds, seenBlocks;
  for (const FolderRecord& f : state_.folders) knownIds.insert(f.nodeId);
  const std::uint32_t total = rows.RecordCount();
  std::uint32_t read = 0;
  ScannedNodeRow row;
  char status[64];
  while (rows.Next(row)) {
    const std::uint64_t id = row.nodeId, data = row.dataBlock;
    std::uint64_t parent = row.parent;
    if (Cancelled()) break;
    ++read;
    std::snprintf(status, sizeof status, "Processing : %u of %u", read, total);
    reader_.Sink().SetStatusLine(status);
    reader_.Sink().SetProgress(static_cast<int>(std::uint64_t{read} * 100 / total));
    if (seenIds.count(id) != 0 || knownIds.count(id) != 0 || seenBlocks.count(data) != 0) continue;
    FolderRecord record;
    record.containerClass = kDefaultClass;
    ReadScannedFolder(data, record.name, record.containerClass, record.itemCount);
    seenBlocks.insert(data);
    if (record.name.empty()) continue;
    seenIds.insert(id);
    if (record.itemCount == 0) record.itemCount = ScannedMessageHasParent(id) ? 1 : 0;
    reader_.Sink().SetStatusLine(record.name);
    if (id == kRootFolderId) {
      parent = 0;
    } else {
      if (parent == kRootFolderId) parent = 0;
      if (id == parent) continue;
    }
    record.nodeId = id;
    record.parentId = parent;
    record.isLost = row.mark != 0;
    knownIds.insert(id);
    state_.folders.push_back(std::move(record));
  }
  if (Cancelled()) return false;
  AssureStandardFolders();
  return true;
}

void FolderRebuild::ReadScannedFolder(std::uint64_t dataBlock, std::string& name, std::string& containerClass,
                                      std::uint32_t& itemCount) {
  std::vector<std::uint64_t> offsets, sizes;
  reader_.Scanner().ScanAllBlocks(dataBlock, offsets, sizes);
  const SubnodeLists none;
  for (std::size_t k = 0; k < offsets.size(); ++k) {
    if (Cancelled()) return;
    if (!triedOffsets_.insert(offsets[k]).second) continue;
    PropertyBag bag;
    if (!reader_.ReadBagAt(offsets[k], sizes[k], dataBlock, bag, none)) continue;
    std::string candidate, candidateClass;
    std::uint32_t count = 0;
    ReadFolderText(bag, candidate, candidateClass, count);
    if (candidate.empty()) continue;
    name = std::move(candidate);
    containerClass = std::move(candidateClass);
    itemCount = count;
    return;
  }
}

bool FolderRebuild::ScannedMessageHasParent(std::uint64_t folderId) {
  ScannedNodeList& messages = reader_.Scanner().messages;
  ScannedNodeRow row;
  if (!messageParentsRead_) {
    // One pass gathers the distinct parents, so each folder is not a full
    // search of the list; a list with too many falls back to that search.
    messageParentsRead_ = true;
    std::unordered_set<std::uint64_t> distinct;
    messages.Rewind();
    while (messages.Next(row)) {
      distinct.insert(row.parent);
      if (distinct.size() > kMaxParentsInMemory) break;
    }
    if (distinct.size() <= kMaxParentsInMemory) {
      messageParents_.assign(distinct.begin(), distinct.end());
      std::sort(messageParents_.begin(), messageParents_.end());
    } else {
      messageParents_.clear();
      messageParents_.shrink_to_fit();
    }
  }
  if (!messageParents_.empty() || messages.RecordCount() == 0) {
    return std::binary_search(messageParents_.begin(), messageParents_.end(), folderId);
  }
  messages.Rewind();
  while (messages.Next(row)) {
    if (row.parent == folderId) return true;
  }
  return false;
}

void FolderRebuild::AddOrphanFolders() {
  ProgressSink& sink = reader_.Sink();
  sink.SetStepLine("Step 4 of 6...");
  std::vector<FolderRecord>& folders = state_.folders;
  folders.push_back({"Orphan Folder(s)", kDefaultClass, kOrphanParentId, 0, 0, kNoTreeItem, true});
  std::unordered_set<std::uint64_t> knownIds, seenBlocks;
  for (const FolderRecord& f : folders) knownIds.insert(f.nodeId);

  ScannedNodeList& messages = reader_.Scanner().messages;
  messages.Rewind();
  const std::uint32_t total = messages.RecordCount();
  std::uint32_t read = 0;
  int n = 1;
  ScannedNodeRow row;
  while (messages.Next(row)) {
    const std::uint64_t parent = row.parent, data = row.dataBlock;
    if (Cancelled()) break;
    ++read;
    sink.SetProgress(static_cast<int>(std::uint64_t{read} * 100 / total));
    if (knownIds.count(parent) != 0 || parent == 0 || !seenBlocks.insert(data).second) continue;
    VisitedSet visited;
    std::uint64_t offset = 0, size = 0;
    if (!reader_.FindBlock(reader_.BlockRoot(), data, offset, size, visited)) continue;
    std::vector<std::uint8_t> block = reader_.ReadAt(offset, std::min<std::uint64_t>(size, kMaxBlockSize));
    reader_.NormalizeBlock(block, data, nullptr);
    if (ReadU8(block, 2) != kHeapSignature) continue;
    char name[48];
    std::snprintf(name, sizeof name, "Orphan Folder_%d", n++);
    folders.push_back({name, kDefaultClass, parent, kOrphanParentId, 10, kNoTreeItem, true});
    knownIds.insert(parent);
  }
  if (n == 1) folders.pop_back();
}

}  // namespace marrow
