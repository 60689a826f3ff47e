// Any bytes as a whole store file: every public operation of the store
// reader over them in each of the four store forms, then the recovery driver
// (quick and raw) in each form, with its tree, item lists and a snapshot
// written and rebuilt from. Besides what the sanitizers catch, it aborts when
// an answer breaks a promise of the reader's interface, or when a scratch
// file is left behind.
#include <algorithm>
#include <array>
#include <memory>
#include <set>
#include <tuple>
#include <unordered_map>

#include "store/block_index_walk.h"
#include "store/folder_items.h"
#include "store/lost_item_scanner.h"
#include "store/memory_tree.h"
#include "store/page_layout.h"
#include "store/recovery.h"
#include "store/snapshot.h"
#include "store/store_summary.h"
#include "tests/fuzz/heap_check.h"

namespace marrow {
namespace {

using namespace fuzz;

// Cancelling after this many questions to the progress sink bounds one pass.
constexpr int kCancelAfter = 200000;
constexpr std::size_t kSinkLimit = 4u << 20;
// Walks the progress sink does not drive are bounded by the rows handed to them.
constexpr std::size_t kMaxFolders = 64, kMaxItemsRead = 4, kMaxSubnodesRead = 16, kMaxBlockRowsRead = 8;

class BoundedProgress final : public ProgressSink {
 public:
  bool IsCancelled() override { return ++calls_ > kCancelAfter; }
  // Once cancelled, walks may stop anywhere: their answers no longer agree.
  bool Exhausted() const { return calls_ > kCancelAfter; }

 private:
  int calls_ = 0;
};

// Stands in for the whole-file scan of deep mode: it claims every block, at a
// place derived from its id, so that readers meet blocks no index vouched for.
class FakeScan final : public ScanIndex {
 public:
  explicit FakeScan(std::uint64_t fileSize) : fileSize_(fileSize) {}
  void ExtractNodeRows(Bytes) override {}
  bool ScanFindBlock(std::uint64_t blockId, std::uint64_t& offset, std::uint64_t& size) override {
    if (blockId == 0 || fileSize_ == 0) return false;
    offset = ((blockId >> 2) * 64) % fileSize_;
    size = 64 + (blockId >> 2) % 960;
    return true;
  }

 private:
  std::uint64_t fileSize_;
};

// The form the header names first, then the other three.
std::array<std::pair<int, bool>, 4> Forms(int ansi, bool large) {
  return {{{ansi, large}, {ansi, !large}, {!ansi, large}, {!ansi, !large}}};
}

void CheckSink(const MemorySink& sink) {
  Check(sink.Data().size() <= kSinkLimit, "a sink kept more than its limit");
}

// A join's segments follow each other from 0, each no larger than a block.
void CheckSegments(const std::vector<HeapSegment>& segments) {
  std::uint64_t next = 0;
  for (const HeapSegment& s : segments) {
    Check(s.start == next, "heap segments are not contiguous");
    Check(s.length <= kMaxBlockSize, "a heap segment is larger than a block");
    next += s.length;
  }
  Check(next <= kMaxJoinSize, "heap segments add up to more than a join may gather");
}

void ReadSubnodes(StoreReader& reader, std::uint64_t subnodeBlock) {
  if (subnodeBlock == 0) return;
  SubnodeLists lists;
  reader.ReadSubnodeList(subnodeBlock, lists);
  bool listed = false;
  for (std::size_t i = 0; i < lists.size(); ++i) {
    listed |= lists[i].nodeId == ~std::uint64_t{0};
    if (i >= kMaxSubnodesRead) continue;
    MemorySink sink(kSinkLimit);
    std::uint64_t child = 1;
    reader.ReadSubnodeInto(lists[i].nodeId, lists, sink, child);
    Check((child & 1) == 0, "a child subnode block keeps its reserved bit");
    CheckSink(sink);
  }
  // A NodeId the list does not hold reads nothing and leaves the child alone.
  MemorySink none(kSinkLimit);
  std::uint64_t untouched = 7;
  reader.ReadSubnodeInto(~std::uint64_t{0}, lists, none, untouched);
  Check(listed || (none.Data().empty() && untouched == 7), "an absent subnode produced data");
}

void ReadData(StoreReader& reader, std::uint64_t dataBlock) {
  MemorySink tree(kSinkLimit);
  reader.ReadDataTreeInto(dataBlock, tree);
  CheckSink(tree);
  // One block is its stored bytes or what they inflate to, kept only within a block's inflated
  // bound.
  MemorySink one(kSinkLimit);
  reader.ReadBlockInto(dataBlock, one);
  Check(one.Data().size() <= std::max<std::size_t>(kMaxBlockSize, kMaxInflatedBlock),
        "one block read more than a block");
}

// An item's property list with its subnodes, and its recipient table.
void ReadItemHeaps(StoreReader& reader, std::uint64_t dataBlock, std::uint64_t subnodeBlock) {
  SubnodeLists subnodes;
  reader.ReadSubnodeList(subnodeBlock, subnodes);
  PropertyBag bag;
  reader.ReadBagFromBlock(dataBlock, bag, subnodes);
  CheckBag(bag, reader.TempFolder());
  MemorySink table(kMaxBlockSize);
  std::uint64_t child = 0;
  reader.ReadSubnodeInto(0x692, subnodes, table, child);
  ReadHeap(reader, table.Data(), nullptr, subnodes);
}

void NormalizeFolderBlock(StoreReader& reader, std::uint64_t dataBlock) {
  VisitedSet visited;
  std::uint64_t offset = 0, size = 0;
  if (!reader.FindBlock(reader.BlockRoot(), dataBlock, offset, size, visited)) return;
  if (size > kMaxBlockSize || offset >= reader.FileSize()) return;
  Buf block = reader.ReadAt(offset, size);
  Check(block.size() == size, "ReadAt did not return the size asked for");
  std::vector<HeapSegment> segments;
  reader.NormalizeBlock(block, dataBlock, &segments);
  CheckSegments(segments);
  ReadHeap(reader, block, &segments, {});
}

// The page check and the branch-row steps over the page at one root, as the walks use them.
void CheckRootPage(StoreReader& reader, std::uint64_t root, bool blockIndex) {
  if (root >= reader.FileSize()) return;
  const PageLayout& layout = LayoutFor(reader.IsAnsi() != 0, reader.IsLargePage());
  const Buf page = reader.ReadAt(root, layout.pageSize);
  PageFields f;
  if (!reader.CheckPage(page, blockIndex, f)) return;
  Check(f.count <= f.max, "a checked page has more rows than its maximum");
  Check(std::size_t{f.count} * f.size <= layout.rowLimit, "a checked page's rows run past its row limit");
  if (f.level == 0) return;
  std::vector<std::uint64_t> keys, offsets;
  reader.CollectBranchRows(page, f.count, f.size, keys, offsets);
  Check(keys.size() == offsets.size(), "branch keys and offsets differ in number");
  for (std::uint64_t o : offsets) Check(o < reader.FileSize(), "a collected child lies past the end");
  keys.clear();
  offsets.clear();
  reader.DescendBranch(page, f.count, f.size, 0, 0, offsets, keys);
  Check(keys.size() == offsets.size(), "descended keys and offsets differ in number");
  reader.DescendBranch(page, f.count, f.size, 0x122, 1, offsets, keys);
}

// One pass of everything over the current form and roots; gives the folder
// rows the node walk found. In deep mode the node walk yields no folder rows
// of its own, so the caller's are used.
std::vector<FolderRow> ExerciseForm(StoreReader& reader, const std::vector<FolderRow>* givenRows = nullptr) {
  BoundedProgress progress;
  reader.SetProgressSink(&progress);
  CheckRootPage(reader, reader.NodeRoot(), false);
  CheckRootPage(reader, reader.BlockRoot(), true);

  const std::vector<FolderRow> walkedRows = reader.ReadFolderRows();
  std::set<std::uint64_t> folders, walked;
  for (const FolderRow& row : walkedRows) {
    Check((row.nodeId & kNodeTypeMask) == kNodeTypeFolder, "a folder row is not a folder node");
    folders.insert(row.nodeId);
  }
  // The breadth-first folder walk and the depth-first walk of all node rows
  // read the same pages, so they must find the same folders.
  VisitedSet nodePages;
  reader.ForEachNodeEntry(reader.NodeRoot(), nodePages, [&](const NodeEntry& e) {
    if ((e.nodeId & kNodeTypeMask) == kNodeTypeFolder) walked.insert(e.nodeId);
  });
  Check(reader.UsesScan() || progress.Exhausted() || folders == walked,
        "the folder walk and the node row walk found different folders");

  std::vector<std::uint64_t> blockIds;
  ForEachBlockEntry(reader, [&](const BlockEntry& e) {
    if (blockIds.size() < kMaxBlockRowsRead) blockIds.push_back(e.blockId);
  });
  for (std::uint64_t id : blockIds) {
    MemorySink one(kSinkLimit);
    reader.ReadBlockInto(id, one);
    CheckSink(one);
  }
  for (std::uint64_t nodeId : {0x61, 0x122}) {
    VisitedSet visited;
    std::uint64_t dataBlock = 0, subnodeBlock = 0;
    const std::int64_t found = reader.FindNodeRow(reader.NodeRoot(), nodeId, dataBlock, subnodeBlock, visited);
    Check(found == 0 || found == 1, "FindNodeRow answered neither 0 nor 1");
    if (found == 0) continue;
    ReadSubnodes(reader, subnodeBlock);
    ReadData(reader, dataBlock);
  }

  const std::vector<FolderRow> rows = givenRows ? *givenRows : walkedRows;
  for (std::size_t i = 0; i < rows.size() && i < kMaxFolders; ++i) {
    const FolderRow& row = rows[i];
    NormalizeFolderBlock(reader, row.dataBlock);
    std::vector<std::pair<std::uint64_t, std::uint64_t>> items;  // data and subnode blocks
    VisitedSet pages;
    reader.ListNodeChildren(reader.NodeRoot(), row.nodeId, pages,
                            [&](std::uint64_t dataBlock, std::uint64_t nodeId, std::uint64_t subnodeBlock) {
                              Check((nodeId & kNodeTypeMask) == kNodeTypeMessage,
                                    "a listed item is not a message node");
                              if (items.size() < kMaxItemsRead) items.emplace_back(dataBlock, subnodeBlock);
                            });
    items.insert(items.begin(), {row.dataBlock, row.subnodeBlock});
    for (const auto& [dataBlock, subnodeBlock] : items) {
      ReadSubnodes(reader, subnodeBlock);
      ReadData(reader, dataBlock);
      ReadItemHeaps(reader, dataBlock, subnodeBlock);
    }
  }
  const std::size_t named = reader.NamedProperties().size();
  reader.LoadNameMap();
  for (std::size_t i = named; i < reader.NamedProperties().size(); ++i) {
    const NamedProperty& n = reader.NamedProperties()[i];
    Check(n.numericName >= 0x8000 && n.propId >= 0x8000 && n.guidText.size() == 38, "a malformed named property");
  }
  reader.SetProgressSink(nullptr);
  return walkedRows;
}

// The summary counts each folder's messages in one walk; a listing of each
// folder must give the same counts.
void CheckSummary(StoreReader& reader, std::size_t size) {
  BoundedProgress progress;
  reader.SetProgressSink(&progress);
  const StoreSummary summary = SummarizeStore(reader);
  Check(summary.fileSize == size, "the summary's file size is not the input's");
  for (std::size_t i = 0; i < summary.folders.size() && i < kMaxFolders; ++i) {
    std::uint64_t listed = 0;
    VisitedSet pages;
    reader.ListNodeChildren(reader.NodeRoot(), summary.folders[i].row.nodeId, pages,
                            [&](std::uint64_t, std::uint64_t, std::uint64_t) { ++listed; });
    if (progress.Exhausted()) break;
    Check(listed == summary.folders[i].messages, "the summary's message count differs from a folder listing");
  }
  reader.SetProgressSink(nullptr);
}

// The whole-file scan in each form: its tables stay in step, and every block
// it reports can be looked up again through it.
void ExerciseScan(StoreReader& reader) {
  for (const auto& [ansi, large] : {std::pair{1, false}, std::pair{0, false}, std::pair{0, true}}) {
    reader.SetAnsi(ansi);
    reader.SetLargePage(large);
    LostItemScanner scan(reader);
    scan.ScanFile();
    scan.blocks.Rewind();
    ScannedBlockRow block;
    std::uint64_t offset = 0, size = 0;
    for (int i = 0; i < 4 && scan.blocks.Next(block); ++i) {
      Check(scan.ScanFindBlock(block.blockId, offset, size) && size != 0, "a scanned block is not found again");
    }
  }
}

void ExerciseStore(const Buf& bytes, const std::string& scratch) {
  StoreReader reader(scratch);
  if (!reader.OpenSource(std::make_unique<MemorySource>(bytes))) Fail("opening a memory source failed");
  Check(reader.FileSize() == bytes.size(), "the reader's file size is not the input's");

  // Each form with the roots the open found.
  const int headerAnsi = reader.IsAnsi();
  const bool headerLarge = reader.IsLargePage();
  const std::uint64_t openRoots[2] = {reader.NodeRoot(), reader.BlockRoot()};
  std::vector<FolderRow> knownRows;
  for (const auto& [ansi, large] : Forms(headerAnsi, headerLarge)) {
    reader.SetAnsi(ansi);
    reader.SetLargePage(large);
    reader.SetRoots(openRoots[0], openRoots[1]);
    const std::vector<FolderRow> walked = ExerciseForm(reader);
    if (ansi == headerAnsi && large == headerLarge) knownRows = walked;
  }

  // Deep mode in the header's form, with a scan that knows every block and
  // no scratch folder, so that joins are kept in memory.
  FakeScan scan(reader.FileSize());
  reader.SetAnsi(headerAnsi);
  reader.SetLargePage(headerLarge);
  reader.SetRoots(openRoots[0], openRoots[1]);
  reader.SetScanIndex(&scan);
  reader.SetTempFolder(scratch + "/absent");
  ExerciseForm(reader, &knownRows);
  reader.SetTempFolder(scratch);
  reader.SetScanIndex(nullptr);

  CheckSummary(reader, bytes.size());
  ExerciseScan(reader);
}

// --- The recovery driver ---------------------------------------------------

// The input as the recovery runs meet it: its bytes, the scratch folder, and
// the input's copy there, which a snapshot names as its source.
struct Input {
  const Buf& bytes;
  std::string scratch;
  std::string storePath;
};

// A fresh reader over the input, as the application opens one per run.
std::unique_ptr<StoreReader> OpenInput(const Input& in) {
  auto reader = std::make_unique<StoreReader>(in.scratch);
  if (!reader->OpenSource(std::make_unique<MemorySource>(in.bytes), in.storePath)) {
    Fail("opening a memory source failed");
  }
  return reader;
}

// One item of a rebuilt tree: its text and its depth below the store's item.
struct TreeLine {
  std::string text;
  int depth;
  bool operator==(const TreeLine&) const = default;
};

// The tree below `root` in display order. Every item handed out is alive,
// one level below its parent, and siblings stand in sorted order.
std::vector<TreeLine> WalkTree(const MemoryTree& tree, TreeItem root) {
  std::vector<TreeLine> lines;
  std::unordered_map<TreeItem, int> depthOf{{root, 0}};
  auto checkOrder = [&](const MemoryTree::Node* node) {
    Check(node != nullptr, "the tree walk met an item that is not in the tree");
    for (std::size_t k = 1; k < node->children.size(); ++k) {
      const MemoryTree::Node* a = tree.Find(node->children[k - 1]);
      const MemoryTree::Node* b = tree.Find(node->children[k]);
      Check(a != nullptr && b != nullptr, "a tree item has a child that is not in the tree");
      Check(!TreeTextLess(b->text, a->text), "tree siblings are not in sorted order");
    }
  };
  checkOrder(tree.Find(root));
  tree.ForEachBelow(root, [&](TreeItem item, int depth) {
    const MemoryTree::Node* node = tree.Find(item);
    checkOrder(node);
    const auto parent = depthOf.find(node->parent);
    Check(parent != depthOf.end() && parent->second + 1 == depth,
          "the tree walk gave an item before its parent, or at the wrong depth");
    depthOf[item] = depth;
    lines.push_back({node->text, depth});
  });
  return lines;
}

// The items of the first folders of a run. The index lists messages and the
// scan keeps only message rows; a snapshot's rows are whatever its file says.
void ListFolderItems(StoreReader& reader, const RecoveryState& state, bool fromStore) {
  for (std::size_t i = 0; i < state.folders.size() && i < kMaxFolders; ++i) {
    std::set<std::uint64_t> blocks;
    ForEachFolderItem(reader, state, state.folders[i].nodeId, 1, [&](const FolderItem& item) {
      const bool fresh = blocks.insert(item.dataBlock).second;
      if (!fromStore) return;
      Check((item.nodeId & kNodeTypeMask) == kNodeTypeMessage, "a folder item is not a message node");
      // Scanned rows come after the index's, each data block only once.
      Check(!item.isLost || (reader.UsesScan() && fresh), "a scanned item repeats a data block already listed");
    });
  }
}

// What a snapshot carries over: the index rows, the scan's lists and the
// folders, all but the lost flag. A reload makes up the two standard folders,
// as the first step does, where the list it reads lacks them (a raw scan's,
// or one that gained its first rows only in the orphan step); nothing else.
void CheckSameLists(StoreReader& writer, const RecoveryState& written, StoreReader& reader, const RecoveryState& read) {
  auto rows = [](const RecoveryState& r) {
    std::vector<std::array<std::uint64_t, 4>> out;
    for (const FolderRow& f : r.folderRows) out.push_back({f.nodeId, f.dataBlock, f.subnodeBlock, f.parent});
    return out;
  };
  Check(rows(written) == rows(read), "the folder rows read from a snapshot differ from those written");
  // Every record of every scan list, in order.
  auto lists = [](StoreReader& r) {
    LostItemScanner& s = r.Scanner();
    std::vector<std::array<std::uint64_t, 5>> out;
    ScannedBlockRow block;
    s.blocks.Rewind();
    while (s.blocks.Next(block)) out.push_back({0, block.blockId, block.fileOffset, block.size, 0});
    for (ScannedNodeList* list : {&s.folders, &s.messages}) {
      ScannedNodeRow row;
      list->Rewind();
      while (list->Next(row)) out.push_back({row.nodeId, row.dataBlock, row.subnodeBlock, row.parent, row.mark});
      out.push_back({~0ull, 0, 0, 0, 0});  // where one list ends
    }
    return out;
  };
  Check(lists(writer) == lists(reader), "a snapshot's scan lists differ from the scan's");
  const std::size_t n = written.folders.size();
  auto folders = [n](const RecoveryState& r) {
    std::vector<std::tuple<std::string, std::string, std::uint64_t, std::uint64_t, std::uint32_t>> out;
    for (std::size_t i = 0; i < n && i < r.folders.size(); ++i) {
      const FolderRecord& f = r.folders[i];
      out.emplace_back(f.name, f.containerClass, f.nodeId, f.parentId, f.itemCount);
    }
    return out;
  };
  Check(read.folders.size() >= n && read.folders.size() <= n + 2, "a snapshot lost or gained folders");
  Check(folders(written) == folders(read), "a folder's texts, ids or count changed in a snapshot");
  for (std::size_t i = n; i < read.folders.size(); ++i) {
    Check(read.folders[i].nodeId == kTopOfFoldersId || read.folders[i].nodeId == kDeletedItemsId,
          "a reload added a folder that is not a standard one");
  }
}

// A snapshot-mode run over `path` into a fresh tree, as the application reloads one.
std::vector<TreeLine> Reload(StoreReader& reader, RecoveryState& state, const SnapshotHeader& header,
                             const std::string& path, bool retry, bool& complete) {
  reader.SetAnsi(header.isAnsi);
  reader.SetLargePage(header.isLargePage);
  state.rawMode = header.rawMode;
  BoundedProgress progress;
  reader.SetProgressSink(&progress);
  MemoryTree tree;
  const TreeItem root = tree.AddRoot("snapshot", 0);
  RecoverStore(reader, state, tree, root, retry, path);
  std::vector<TreeLine> lines = WalkTree(tree, root);
  reader.SetProgressSink(nullptr);
  complete = !progress.Exhausted();
  return lines;
}

// One run of the driver in one form, quick or raw, then what the application
// does with it: the tree walked, the items listed, a snapshot written and a
// fresh reader rebuilt from it, whose lists and tree must be the first run's.
void RunRecovery(const Input& in, std::size_t formIndex, bool raw) {
  std::unique_ptr<StoreReader> reader = OpenInput(in);
  const auto [ansi, large] = Forms(reader->IsAnsi(), reader->IsLargePage())[formIndex];
  reader->SetAnsi(ansi);
  reader->SetLargePage(large);
  RecoveryState state;
  state.rawMode = raw;
  BoundedProgress progress;
  reader->SetProgressSink(&progress);
  MemoryTree tree;
  const TreeItem root = tree.AddRoot("store", 0);
  FolderRebuild rebuild(*reader, state, tree, root);
  // A quick run is no retry; raw runs are, as the scan ladder makes them.
  Check(rebuild.RecoverStore(raw, {}), "the recovery driver answered false");
  const bool complete = !progress.Exhausted();
  const std::vector<TreeLine> lines = WalkTree(tree, root);
  for (const FolderRecord& f : state.folders) {
    Check(!f.name.empty(), "a recovered folder has no name");
  }
  for (std::size_t i = 0; complete && i < rebuild.ExpandList().size(); ++i) {
    const MemoryTree::Node* node = tree.Find(rebuild.ExpandList()[i]);
    Check(node != nullptr && node->expanded, "a folder marked for expanding is not expanded");
  }
  ListFolderItems(*reader, state, true);

  const std::string path = in.scratch + "/run" + kSnapshotExtension;
  WriteSnapshot(*reader, state, path);
  SnapshotHeader header;
  std::string error;
  Check(ReadSnapshotHeader(path, header, error), "a snapshot just written was refused");
  Check(header.sourcePath == in.storePath && header.tempFolder == in.scratch + "/" &&
            header.sourceSize == in.bytes.size() && header.isAnsi == reader->IsAnsi() &&
            header.isLargePage == reader->IsLargePage() && header.rawMode == raw,
        "a snapshot's header differs from what was written");
  {
    std::unique_ptr<StoreReader> reload = OpenInput(in);
    RecoveryState reloadState;
    bool reloadComplete = false;
    const std::vector<TreeLine> reloaded = Reload(*reload, reloadState, header, path, raw, reloadComplete);
    CheckSameLists(*reader, state, *reload, reloadState);
    if (complete && reloadComplete && reloadState.folders.size() == state.folders.size()) {
      Check(reloaded == lines, "the tree rebuilt from a snapshot differs from the first run's");
    }
    ListFolderItems(*reload, reloadState, false);
  }
  std::remove(path.c_str());
  reader->SetProgressSink(nullptr);
}

}  // namespace
}  // namespace marrow

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marrow;
  const fuzz::Buf bytes(data, data + size);
  const fuzz::ScratchFolder scratch;
  ExerciseStore(bytes, scratch.Path());
  const Input in{bytes, scratch.Path(), scratch.Path() + "/store.bin"};
  fuzz::WriteFile(in.storePath, bytes);
  for (std::size_t form = 0; form < 4; ++form) {
    RunRecovery(in, form, false);
    RunRecovery(in, form, true);
  }
  std::remove(in.storePath.c_str());
  return 0;
}
