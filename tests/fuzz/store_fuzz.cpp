// Takes arbitrary bytes as a whole store file and drives every public
// operation of the store reader over them, in each of the four store forms,
// then the recovery driver (quick and raw) in each form, with its tree, item
// lists and a snapshot written and rebuilt from; the same bytes are also
// read as a snapshot file.
// Besides what the sanitizers catch, it aborts when an answer breaks a
// promise of the reader's interface, or when a scratch file is left behind.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "content/property_values.h"
#include "content/rtf_body.h"
#include "content/value_format.h"
#include "store/block_codec.h"
#include "store/block_index_walk.h"
#include "store/byte_sink.h"
#include "store/byte_source.h"
#include "store/folder_items.h"
#include "store/lost_item_scanner.h"
#include "store/memory_tree.h"
#include "store/page_layout.h"
#include "store/property_bag.h"
#include "store/recovery.h"
#include "store/scan_index.h"
#include "store/snapshot.h"
#include "store/store_reader.h"
#include "store/store_summary.h"

namespace {

using marrow::Bytes;

// Every walk asks the progress sink between units of work; cancelling after
// this many questions bounds the time one pass over an input can take.
constexpr int kCancelAfter = 200000;
// Each sink keeps at most this much.
constexpr std::size_t kSinkLimit = 4u << 20;
// Walks not driven by the progress sink (block look-ups, data trees) are
// bounded by how many rows the harness hands them.
constexpr std::size_t kMaxFolders = 64;
constexpr std::size_t kMaxItemsRead = 4;
constexpr std::size_t kMaxSubnodesRead = 16;
constexpr std::size_t kMaxBlockRowsRead = 8;

// Header fields the form flip needs: where each width keeps its two roots.
constexpr std::size_t kAnsiNodeRoot = 0xBC, kAnsiBlockRoot = 0xC4;
constexpr std::size_t kWideNodeRoot = 0xE0, kWideBlockRoot = 0xF0;

// What one input reached, printed when STORE_FUZZ_VERBOSE is set: a seed
// that reaches nothing is worth little.
struct Reach {
  std::size_t folders = 0, items = 0, subnodes = 0, treeBytes = 0, blockBytes = 0, joins = 0, heapValues = 0;
  // Of the recovery runs: tree items, scanned-only folders, orphan folders,
  // items listed, and folders read back from a snapshot made of the input.
  std::size_t treeItems = 0, lostFolders = 0, orphans = 0, folderItems = 0, snapshotFolders = 0;
} reach;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "store_fuzz: %s\n", what);
  std::abort();
}

void Check(bool ok, const char* what) {
  if (!ok) Fail(what);
}

class BoundedProgress final : public marrow::ProgressSink {
 public:
  bool IsCancelled() override { return ++calls_ > kCancelAfter; }
  // Once cancelled, walks may stop anywhere: their answers no longer agree.
  bool Exhausted() const { return calls_ > kCancelAfter; }

 private:
  int calls_ = 0;
};

// Stands in for the whole-file scan of deep mode: it counts the pages it is
// given and claims to know every block, at a place derived from its id, so
// that the readers also meet blocks the index never vouched for.
class FakeScan final : public marrow::ScanIndex {
 public:
  explicit FakeScan(std::uint64_t fileSize) : fileSize_(fileSize) {}
  void ExtractNodeRows(Bytes page) override { pages_ += !page.empty(); }
  bool ScanFindBlock(std::uint64_t blockId, std::uint64_t& offset, std::uint64_t& size) override {
    if (blockId == 0 || fileSize_ == 0) return false;
    offset = ((blockId >> 2) * 64) % fileSize_;
    size = 64 + (blockId >> 2) % 960;
    return true;
  }

 private:
  std::uint64_t fileSize_;
  std::uint64_t pages_ = 0;
};

// A scratch folder of the reader's own for one input, removed after it. It
// lies in /tmp, or in the folder STORE_FUZZ_SCRATCH names: each input makes
// and deletes some hundred files (every reader's disk lists), which a memory
// file system does much faster than a disk.
class ScratchFolder {
 public:
  ScratchFolder() {
    const char* base = std::getenv("STORE_FUZZ_SCRATCH");
    std::string name = std::string(base != nullptr && *base != 0 ? base : "/tmp") + "/marrow-fuzz-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) Fail("cannot create the scratch folder");
    path_ = name;
  }
  ~ScratchFolder() { ::rmdir(path_.c_str()); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& Path() const { return path_; }

  // Every file the reader left here is a leak of a scratch file.
  void CheckEmpty() const {
    DIR* dir = ::opendir(path_.c_str());
    if (dir == nullptr) Fail("the scratch folder is gone");
    std::vector<std::string> left;
    while (dirent* e = ::readdir(dir)) {
      if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
        left.push_back(e->d_name);
    }
    ::closedir(dir);
    if (left.empty()) return;
    for (const std::string& name : left)
      std::fprintf(stderr, "store_fuzz: left behind: %s\n", name.c_str());
    Fail("scratch files were left in the scratch folder");
  }

 private:
  std::string path_;
};

// Points TMPDIR at a folder for one input, and puts back what was there.
class TempFolderOverride {
 public:
  explicit TempFolderOverride(const std::string& folder) {
    if (const char* old = std::getenv("TMPDIR")) {
      had_ = true;
      old_ = old;
    }
    ::setenv("TMPDIR", folder.c_str(), 1);
  }
  ~TempFolderOverride() {
    if (had_) {
      ::setenv("TMPDIR", old_.c_str(), 1);
    } else {
      ::unsetenv("TMPDIR");
    }
  }
  TempFolderOverride(const TempFolderOverride&) = delete;
  TempFolderOverride& operator=(const TempFolderOverride&) = delete;

 private:
  bool had_ = false;
  std::string old_;
};

void CheckSink(const marrow::MemorySink& sink) {
  Check(sink.Data().size() <= kSinkLimit, "a sink kept more than its limit");
}

// A join's segments follow each other from 0, each no larger than a block.
void CheckSegments(const std::vector<marrow::HeapSegment>& segments) {
  std::uint64_t next = 0;
  for (const marrow::HeapSegment& s : segments) {
    Check(s.start == next, "heap segments are not contiguous");
    Check(s.length <= marrow::kMaxBlockSize, "a heap segment is larger than a block");
    next += s.length;
  }
  Check(next <= marrow::kMaxJoinSize, "heap segments add up to more than a join may gather");
}

void ReadSubnodes(marrow::StoreReader& reader, std::uint64_t subnodeBlock) {
  if (subnodeBlock == 0) return;
  marrow::SubnodeLists lists;
  reader.ReadSubnodeList(subnodeBlock, lists);
  reach.subnodes += lists.size();
  for (std::size_t i = 0; i < lists.size() && i < kMaxSubnodesRead; ++i) {
    marrow::MemorySink sink(kSinkLimit);
    std::uint64_t child = 1;
    reader.ReadSubnodeInto(lists[i].nodeId, lists, sink, child);
    Check((child & 1) == 0, "a child subnode block keeps its reserved bit");
    CheckSink(sink);
  }
  // A NodeId the list does not hold reads nothing and leaves the child alone.
  marrow::MemorySink none(kSinkLimit);
  std::uint64_t untouched = 7;
  bool listed = false;
  for (const marrow::SubnodeRow& r : lists) listed |= r.nodeId == 0xFFFFFFFFFFFFFFFFull;
  reader.ReadSubnodeInto(0xFFFFFFFFFFFFFFFFull, lists, none, untouched);
  if (!listed) {
    Check(none.Data().empty() && untouched == 7, "an absent subnode produced data");
  }
}

void ReadData(marrow::StoreReader& reader, std::uint64_t dataBlock) {
  marrow::MemorySink tree(kSinkLimit);
  reader.ReadDataTreeInto(dataBlock, tree);
  CheckSink(tree);
  reach.treeBytes += tree.Data().size();
  marrow::MemorySink one(kSinkLimit);
  reader.ReadBlockInto(dataBlock, one);
  // One block is either its stored bytes or what they inflate to, kept
  // only while that fits a block's inflated bound.
  Check(
      one.Data().size() <= std::max<std::size_t>(marrow::kMaxBlockSize, marrow::kMaxInflatedBlock),
      "one block read more than a block");
  reach.blockBytes += one.Data().size();
}

// Every value a heap gives is whole: never empty, in memory with its two
// trailing zeros, or in a spill file of the size it claims.
void CheckBag(const marrow::PropertyBag& bag) {
  for (const marrow::PropertyValue& v : bag.Values()) {
    Check(v.size != 0, "a heap gave an empty value");
    if (v.spillPath.empty()) {
      Check(v.data.size() == std::size_t{v.size} + 2, "a value's bytes do not match its size");
      Check(v.data[v.size] == 0 && v.data[v.size + 1] == 0, "a value lacks its two closing zeros");
    } else {
      std::error_code ec;
      Check(v.data.empty(), "a spilled value also holds bytes");
      Check(std::filesystem::file_size(v.spillPath, ec) == v.size && !ec, "a spill file differs from its size");
    }
  }
}

// What the property view and the body writer make of a bag: every value
// formatted, every text read, the RTF body written and checked.
void ShowBag(const marrow::PropertyBag& bag, const std::string& scratch) {
  for (const marrow::PropertyValue& v : bag.Values()) {
    marrow::FormatValue(bag, v.propId, v.propType);
    marrow::GetString(bag, v.propId, true, 932);
  }
  const std::string rtf = scratch + "/body.rtf";
  marrow::WriteRtfBody(bag, rtf);
  std::remove(rtf.c_str());
}

// A buffer read as a heap: as a property list and as a table.
void ReadHeap(marrow::StoreReader& reader, marrow::Bytes buffer, const std::vector<marrow::HeapSegment>* segments,
              const marrow::SubnodeLists& subnodes) {
  marrow::PropertyBag bag;
  std::vector<marrow::PropertyBag> rows;
  reader.ReadPropertyBag(buffer, &bag, &rows, segments, subnodes, false, true);
  CheckBag(bag);
  ShowBag(bag, reader.tempFolder);
  for (const marrow::PropertyBag& row : rows) CheckBag(row);
  reach.heapValues += bag.size() + rows.size();
  marrow::PropertyBag headers;
  reader.ReadPropertyBag(buffer, &headers, nullptr, segments, subnodes, true, false);
  CheckBag(headers);
}

// An item's property list with its subnodes, and its recipient table.
void ReadItemHeaps(marrow::StoreReader& reader, std::uint64_t dataBlock, std::uint64_t subnodeBlock) {
  marrow::SubnodeLists subnodes;
  reader.ReadSubnodeList(subnodeBlock, subnodes);
  marrow::PropertyBag bag;
  reader.ReadBagFromBlock(dataBlock, bag, subnodes);
  CheckBag(bag);
  ShowBag(bag, reader.tempFolder);
  marrow::MemorySink table(marrow::kMaxBlockSize);
  std::uint64_t child = 0;
  reader.ReadSubnodeInto(0x692, subnodes, table, child);
  ReadHeap(reader, table.Data(), nullptr, subnodes);
}

void NormalizeFolderBlock(marrow::StoreReader& reader, std::uint64_t dataBlock) {
  marrow::VisitedSet visited;
  std::uint64_t offset = 0, size = 0;
  if (!reader.FindBlock(reader.blockRootOffset, dataBlock, offset, size, visited)) return;
  if (size > marrow::kMaxBlockSize || offset >= reader.FileSize()) return;
  std::vector<std::uint8_t> block = reader.ReadAt(offset, size);
  Check(block.size() == size, "ReadAt did not return the size asked for");
  std::vector<marrow::HeapSegment> segments;
  reader.NormalizeBlock(block, dataBlock, &segments);
  CheckSegments(segments);
  reach.joins += !segments.empty();
  ReadHeap(reader, block, &segments, {});
}

// The branch-row helpers over the page at one root, as the walks use them.
void CheckRootPage(marrow::StoreReader& reader, std::uint64_t root, bool blockIndex) {
  if (root >= reader.FileSize()) return;
  const marrow::PageLayout& layout = marrow::LayoutFor(reader.IsAnsi() != 0, reader.IsLargePage());
  std::vector<std::uint8_t> page = reader.ReadAt(root, layout.pageSize);
  marrow::PageFields f;
  if (!reader.CheckPage(page, blockIndex, f)) return;
  Check(f.count <= f.max, "a checked page has more rows than its maximum");
  Check(static_cast<std::size_t>(f.count) * f.size <= layout.rowLimit,
        "a checked page's rows run past its row limit");
  if (f.level == 0) return;
  std::vector<std::uint64_t> keys, offsets;
  reader.CollectBranchRows(page, f.count, f.size, keys, offsets);
  Check(keys.size() == offsets.size(), "branch keys and offsets differ in number");
  for (std::uint64_t o : offsets)
    Check(o < reader.FileSize(), "a collected child lies past the end");
  keys.clear();
  offsets.clear();
  reader.DescendBranch(page, f.count, f.size, 0, 0, offsets, keys);
  Check(keys.size() == offsets.size(), "descended keys and offsets differ in number");
  reader.DescendBranch(page, f.count, f.size, 0x122, 1, offsets, keys);
}

// One pass of everything over the current form and roots. In deep mode the
// node walk yields no folder rows of its own, so the caller's are used.
void ExerciseForm(marrow::StoreReader& reader,
                  const std::vector<marrow::FolderRow>* givenRows = nullptr) {
  BoundedProgress progress;
  reader.SetProgressSink(&progress);
  CheckRootPage(reader, reader.nodeRootOffset, false);
  CheckRootPage(reader, reader.blockRootOffset, true);

  reader.folderRows.clear();
  reader.BuildFolderRows();
  std::set<std::uint64_t> folders;
  for (const marrow::FolderRow& row : reader.folderRows) {
    Check((row.nodeId & marrow::kNodeTypeMask) == marrow::kNodeTypeFolder,
          "a folder row is not a folder node");
    folders.insert(row.nodeId);
  }
  // The breadth-first folder walk and the depth-first walk of all node rows
  // read the same pages, so they must find the same folders.
  std::set<std::uint64_t> walked;
  marrow::VisitedSet nodePages;
  reader.ForEachNodeEntry(reader.nodeRootOffset, nodePages, [&](const marrow::NodeEntry& e) {
    if ((e.nodeId & marrow::kNodeTypeMask) == marrow::kNodeTypeFolder) walked.insert(e.nodeId);
  });
  if (!reader.deepMode && !progress.Exhausted()) {
    Check(folders == walked, "the folder walk and the node row walk found different folders");
  }

  // A few rows of the full block index walk, read as single blocks.
  std::vector<std::uint64_t> blockIds;
  marrow::ForEachBlockEntry(reader, [&](const marrow::BlockEntry& e) {
    if (blockIds.size() < kMaxBlockRowsRead) blockIds.push_back(e.blockId);
  });
  for (std::uint64_t id : blockIds) {
    marrow::MemorySink one(kSinkLimit);
    reader.ReadBlockInto(id, one);
    CheckSink(one);
  }

  for (std::uint64_t nodeId : {std::uint64_t{0x61}, std::uint64_t{0x122}}) {
    marrow::VisitedSet visited;
    std::uint64_t dataBlock = 0, subnodeBlock = 0;
    const std::int64_t found =
        reader.FindNodeRow(reader.nodeRootOffset, nodeId, dataBlock, subnodeBlock, visited);
    Check(found == 0 || found == 1, "FindNodeRow answered neither 0 nor 1");
    if (found == 0) continue;
    ReadSubnodes(reader, subnodeBlock);
    ReadData(reader, dataBlock);
  }

  const std::vector<marrow::FolderRow> rows = givenRows ? *givenRows : reader.folderRows;
  reach.folders += rows.size();
  for (std::size_t i = 0; i < rows.size() && i < kMaxFolders; ++i) {
    const marrow::FolderRow& row = rows[i];
    NormalizeFolderBlock(reader, row.dataBlock);

    struct Item {
      std::uint64_t dataBlock, subnodeBlock;
    };
    std::vector<Item> items;
    std::size_t count = 0;
    marrow::VisitedSet pages;
    reader.ListNodeChildren(
        reader.nodeRootOffset, row.nodeId, pages,
        [&](std::uint64_t dataBlock, std::uint64_t nodeId, std::uint64_t subnodeBlock) {
          Check((nodeId & marrow::kNodeTypeMask) == marrow::kNodeTypeMessage,
                "a listed item is not a message node");
          ++count;
          if (items.size() < kMaxItemsRead) items.push_back({dataBlock, subnodeBlock});
        });
    reach.items += count;

    ReadSubnodes(reader, row.subnodeBlock);
    ReadData(reader, row.dataBlock);
    ReadItemHeaps(reader, row.dataBlock, row.subnodeBlock);
    for (const Item& item : items) {
      ReadData(reader, item.dataBlock);
      ReadSubnodes(reader, item.subnodeBlock);
      ReadItemHeaps(reader, item.dataBlock, item.subnodeBlock);
    }
  }
  const std::size_t named = reader.namedProperties.size();
  reader.LoadNameMap();
  for (std::size_t i = named; i < reader.namedProperties.size(); ++i) {
    const marrow::NamedProperty& n = reader.namedProperties[i];
    Check(n.numericName >= 0x8000 && n.propId >= 0x8000 && n.guidText.size() == 38, "a malformed named property");
  }
  Check(reader.noneVotes >= 0 && reader.permuteVotes >= 0 && reader.cyclicVotes >= 0,
        "a vote counter went negative");
  reader.SetProgressSink(nullptr);
}

// The summary counts each folder's messages in one walk; a listing of each
// folder must give the same counts.
void CheckSummary(marrow::StoreReader& reader, std::size_t size) {
  BoundedProgress progress;
  reader.SetProgressSink(&progress);
  const marrow::StoreSummary summary = marrow::SummarizeStore(reader);
  Check(summary.fileSize == size, "the summary's file size is not the input's");
  for (std::size_t i = 0; i < summary.folders.size() && i < kMaxFolders; ++i) {
    const marrow::FolderSummary& f = summary.folders[i];
    std::uint64_t listed = 0;
    marrow::VisitedSet pages;
    reader.ListNodeChildren(reader.nodeRootOffset, f.row.nodeId, pages,
                            [&](std::uint64_t, std::uint64_t, std::uint64_t) { ++listed; });
    if (progress.Exhausted()) break;
    Check(listed == f.messages, "the summary's message count differs from a folder listing");
  }
  reader.SetProgressSink(nullptr);
}

// The whole-file scan in each form: its tables stay aligned, and every block
// it reports can be looked up again through it.
void ExerciseScan(marrow::StoreReader& reader) {
  for (const auto& [ansi, large] : {std::pair{1, false}, std::pair{0, false}, std::pair{0, true}}) {
    reader.SetAnsi(ansi);
    reader.SetLargePage(large);
    marrow::LostItemScanner scan(reader);
    scan.ScanFile();
    Check(scan.folders.nodeId.RecordCount() == scan.folders.mark.RecordCount() &&
              scan.messages.parent.RecordCount() == scan.messages.mark.RecordCount() &&
              scan.blockIds.RecordCount() == scan.blockSizes.RecordCount(),
          "scan lists out of step");
    scan.blockIds.Rewind();
    std::uint64_t id = 0, offset = 0, size = 0;
    for (int i = 0; i < 4 && scan.blockIds.NextU64(id); ++i) {
      Check(scan.ScanFindBlock(id, offset, size) && size != 0, "a scanned block is not found again");
    }
  }
}

// --- The recovery driver ---------------------------------------------------

// The input as the recovery runs meet it: its bytes, the scratch folder, and
// the input's copy in that folder, which a snapshot names as its source.
struct Input {
  const std::uint8_t* data;
  std::size_t size;
  std::string scratch;
  std::string storePath;
};

// A fresh reader over the input, as the application opens one per run.
std::unique_ptr<marrow::StoreReader> OpenInput(const Input& in) {
  auto reader = std::make_unique<marrow::StoreReader>(in.scratch);
  if (!reader->OpenSource(
          std::make_unique<marrow::MemorySource>(std::vector<std::uint8_t>(in.data, in.data + in.size)),
          in.storePath))
    Fail("opening a memory source failed");
  return reader;
}

// One item of a rebuilt tree, by its text and its depth below the store's item.
struct TreeLine {
  std::string text;
  int depth;
  bool operator==(const TreeLine&) const = default;
};

// The tree below `root` in display order. Every item handed out is alive,
// one level below its parent, and siblings stand in sorted order.
std::vector<TreeLine> WalkTree(const marrow::MemoryTree& tree, marrow::TreeItem root) {
  std::vector<TreeLine> lines;
  std::unordered_map<marrow::TreeItem, int> depthOf{{root, 0}};
  auto checkOrder = [&](const marrow::MemoryTree::Node& node) {
    for (std::size_t k = 1; k < node.children.size(); ++k) {
      const marrow::MemoryTree::Node* a = tree.Find(node.children[k - 1]);
      const marrow::MemoryTree::Node* b = tree.Find(node.children[k]);
      Check(a != nullptr && b != nullptr, "a tree item has a child that is not in the tree");
      Check(!marrow::TreeTextLess(b->text, a->text), "tree siblings are not in sorted order");
    }
  };
  const marrow::MemoryTree::Node* top = tree.Find(root);
  Check(top != nullptr, "the store's item left the tree");
  checkOrder(*top);
  tree.ForEachBelow(root, [&](marrow::TreeItem item, int depth) {
    const marrow::MemoryTree::Node* node = tree.Find(item);
    Check(node != nullptr, "the tree walk gave an item that is not in the tree");
    auto parent = depthOf.find(node->parent);
    Check(parent != depthOf.end() && parent->second + 1 == depth,
          "the tree walk gave an item before its parent, or at the wrong depth");
    depthOf[item] = depth;
    checkOrder(*node);
    lines.push_back({node->text, depth});
  });
  return lines;
}

// The items of the first folders of a run, as the item list shows them. The
// index lists messages and the scan keeps only message rows; a snapshot's
// rows are whatever its file says.
void ListFolderItems(marrow::StoreReader& reader, bool fromStore) {
  const std::size_t n = std::min(reader.folders.size(), kMaxFolders);
  for (std::size_t i = 0; i < n; ++i) {
    std::set<std::uint64_t> blocks;
    marrow::ForEachFolderItem(reader, reader.folders[i].nodeId, 1, [&](const marrow::FolderItem& item) {
      ++reach.folderItems;
      const bool fresh = blocks.insert(item.dataBlock).second;
      if (!fromStore) return;
      Check((item.nodeId & marrow::kNodeTypeMask) == marrow::kNodeTypeMessage,
            "a folder item is not a message node");
      // Scanned rows come after the index's, each data block only once.
      Check(!item.isLost || (reader.deepMode && fresh), "a scanned item repeats a data block already listed");
    });
  }
}

// What a snapshot carries over: the index rows, the scan's lists and the
// folders, all but the lost flag.
void CheckSameLists(marrow::StoreReader& written, marrow::StoreReader& read) {
  Check(read.folderRows.size() == written.folderRows.size(), "a snapshot lost or gained folder rows");
  for (std::size_t i = 0; i < read.folderRows.size(); ++i) {
    const marrow::FolderRow& a = written.folderRows[i];
    const marrow::FolderRow& b = read.folderRows[i];
    Check(a.nodeId == b.nodeId && a.dataBlock == b.dataBlock && a.subnodeBlock == b.subnodeBlock &&
              a.parent == b.parent,
          "a folder row read from a snapshot differs from the one written");
  }
  marrow::LostItemScanner& a = written.Scanner();
  marrow::LostItemScanner& b = read.Scanner();
  Check(a.blockIds.RecordCount() == b.blockIds.RecordCount() &&
            b.blockOffsets.RecordCount() == b.blockIds.RecordCount() &&
            b.blockSizes.RecordCount() == b.blockIds.RecordCount(),
        "a snapshot's block list differs from the scan's");
  Check(a.folders.nodeId.RecordCount() == b.folders.nodeId.RecordCount() &&
            a.messages.nodeId.RecordCount() == b.messages.nodeId.RecordCount() &&
            b.folders.mark.RecordCount() == b.folders.nodeId.RecordCount() &&
            b.messages.parent.RecordCount() == b.messages.nodeId.RecordCount(),
        "a snapshot's node rows differ from the scan's");
  // A reload makes up the two standard folders, as the first step does,
  // where the list it reads lacks them: a raw scan's list, or one that
  // gained its first rows only in the orphan step. Nothing else is added.
  Check(read.folders.size() >= written.folders.size() && read.folders.size() <= written.folders.size() + 2,
        "a snapshot lost or gained folders");
  for (std::size_t i = written.folders.size(); i < read.folders.size(); ++i) {
    const std::uint64_t id = read.folders[i].nodeId;
    Check(id == marrow::kTopOfFoldersId || id == marrow::kDeletedItemsId,
          "a reload added a folder that is not a standard one");
  }
  for (std::size_t i = 0; i < written.folders.size(); ++i) {
    const marrow::FolderRecord& x = written.folders[i];
    const marrow::FolderRecord& y = read.folders[i];
    Check(x.name == y.name && x.containerClass == y.containerClass, "a folder's texts changed in a snapshot");
    Check(x.nodeId == y.nodeId && x.parentId == y.parentId && x.itemCount == y.itemCount,
          "a folder's ids or count changed in a snapshot");
  }
}

// One run of the driver in one form, quick or raw, then what the
// application does with its result: the tree walked, the items of the
// folders listed, a snapshot written and a fresh reader rebuilt from it,
// whose lists and tree must be the first run's.
void RunRecovery(const Input& in, std::size_t formIndex, bool raw) {
  std::unique_ptr<marrow::StoreReader> reader = OpenInput(in);
  // The form the header names first, then the other three.
  const int headerAnsi = reader->IsAnsi();
  const bool headerLarge = reader->IsLargePage();
  const std::pair<int, bool> forms[4] = {{headerAnsi, headerLarge},
                                         {headerAnsi, !headerLarge},
                                         {!headerAnsi, headerLarge},
                                         {!headerAnsi, !headerLarge}};
  reader->SetAnsi(forms[formIndex].first);
  reader->SetLargePage(forms[formIndex].second);
  reader->rawMode = raw;
  BoundedProgress progress;
  reader->SetProgressSink(&progress);
  marrow::MemoryTree tree;
  const marrow::TreeItem root = tree.AddRoot("store", 0);
  marrow::FolderRebuild rebuild(*reader, tree, root);
  // A quick run is no retry; raw runs are, as the scan ladder makes them.
  Check(rebuild.RecoverStore(raw, {}), "the recovery driver answered false");
  const bool complete = !progress.Exhausted();
  const std::vector<TreeLine> lines = WalkTree(tree, root);
  reach.treeItems += lines.size();
  for (const marrow::FolderRecord& f : reader->folders) {
    Check(!f.name.empty(), "a recovered folder has no name");
    reach.orphans += f.parentId == marrow::kOrphanParentId;
    reach.lostFolders += f.isLost && f.nodeId != marrow::kOrphanParentId && f.parentId != marrow::kOrphanParentId;
  }
  if (complete) {
    for (marrow::TreeItem item : rebuild.ExpandList()) {
      const marrow::MemoryTree::Node* node = tree.Find(item);
      Check(node != nullptr && node->expanded, "a folder marked for expanding is not expanded");
    }
  }
  ListFolderItems(*reader, true);

  const std::string path = in.scratch + "/run" + marrow::kSnapshotExtension;
  marrow::WriteSnapshot(*reader, path);
  marrow::SnapshotHeader header;
  std::string error;
  Check(marrow::ReadSnapshotHeader(path, header, error), "a snapshot just written was refused");
  Check(header.sourcePath == in.storePath && header.tempFolder == in.scratch + "/" &&
            header.sourceSize == in.size && header.isAnsi == reader->IsAnsi() &&
            header.isLargePage == reader->IsLargePage() && header.rawMode == raw,
        "a snapshot's header differs from what was written");
  {
    std::unique_ptr<marrow::StoreReader> reload = OpenInput(in);
    reload->SetAnsi(header.isAnsi);
    reload->SetLargePage(header.isLargePage);
    reload->rawMode = header.rawMode;
    BoundedProgress again;
    reload->SetProgressSink(&again);
    marrow::MemoryTree tree2;
    const marrow::TreeItem root2 = tree2.AddRoot("store", 0);
    marrow::RecoverStore(*reload, tree2, root2, raw, path);
    // A snapshot-mode run takes its folders as the file gives them, and
    // adds the standard ones where they are missing.
    CheckSameLists(*reader, *reload);
    const std::vector<TreeLine> reloaded = WalkTree(tree2, root2);
    if (complete && !again.Exhausted() && reload->folders.size() == reader->folders.size()) {
      Check(reloaded == lines, "the tree rebuilt from a snapshot differs from the first run's");
    }
    ListFolderItems(*reload, false);
    reload->SetProgressSink(nullptr);
  }
  std::remove(path.c_str());
  reader->SetProgressSink(nullptr);
}

// The driver in each of the four forms, with the roots the open found (the
// scan ladder changes the form, not the roots).
void ExerciseRecovery(const Input& in) {
  for (std::size_t form = 0; form < 4; ++form) {
    RunRecovery(in, form, false);
    RunRecovery(in, form, true);
  }
}

void WriteFile(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) Fail("cannot write a scratch file");
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  if (std::fclose(f) != 0 || !ok) Fail("cannot write a scratch file");
}

// The input read as a snapshot file. Its header first as it stands, then
// with path fields naming the input's copy and a folder in the scratch
// folder, so that the tests behind the paths are reached; its body read into
// a fresh reader, and, when the header passes, a snapshot-mode run over it.
void ExerciseSnapshotFile(const Input& in) {
  constexpr std::size_t kSourceField = 4, kTempField = kSourceField + marrow::kSnapshotPathField;
  constexpr std::size_t kFieldsEnd = kTempField + marrow::kSnapshotPathField;
  const std::string path = in.scratch + "/input" + marrow::kSnapshotExtension;
  const std::string temp = in.scratch + "/temp";
  std::vector<std::uint8_t> bytes(in.data, in.data + in.size);
  auto setField = [&](std::size_t at, const std::string& text) {
    std::vector<std::uint8_t> field = marrow::Utf8ToUtf16(text);
    field.resize(marrow::kSnapshotPathField, 0);
    std::copy(field.begin(), field.end(), bytes.begin() + at);
  };

  // The header reader creates the temp folder a snapshot names once its
  // source is there; should the input name a source that is, its temp folder
  // is moved into the scratch folder.
  {
    std::vector<std::uint8_t> source(bytes.begin() + std::min(bytes.size(), kSourceField),
                                     bytes.begin() + std::min(bytes.size(), kTempField));
    source.resize(marrow::kSnapshotPathField, 0);
    const std::string sourcePath = marrow::Utf16ToUtf8(source.data(), source.size());
    std::error_code ec;
    if (!sourcePath.empty() && std::filesystem::exists(sourcePath, ec)) {
      if (bytes.size() < kFieldsEnd) bytes.resize(kFieldsEnd, 0);
      setField(kTempField, temp);
    }
  }
  WriteFile(path, bytes);
  {
    marrow::SnapshotHeader header;
    std::string error;
    const bool ok = marrow::ReadSnapshotHeader(path, header, error);
    Check(ok || !error.empty(), "a refused snapshot header gave no reason");
  }

  // The body starts behind the path fields, so these changes leave it alone.
  if (bytes.size() < kFieldsEnd) bytes.resize(kFieldsEnd, 0);
  setField(kSourceField, in.storePath);
  setField(kTempField, temp);
  WriteFile(path, bytes);
  marrow::SnapshotHeader header;
  std::string error;
  const bool magic = std::equal(bytes.begin(), bytes.begin() + 4, marrow::kSnapshotMagic);
  Check(marrow::ReadSnapshotHeader(path, header, error) == magic,
        "a snapshot header with paths that are there was judged by more than its magic");
  std::unique_ptr<marrow::StoreReader> reader = OpenInput(in);
  if (!magic) {
    // What the application would refuse is still read, straight into the lists.
    Check(marrow::ReadSnapshotBody(*reader, path), "a snapshot file that is there cannot be read");
    reach.snapshotFolders += reader->folders.size();
  } else {
    Check(header.sourcePath == in.storePath && header.tempFolder == temp + "/",
          "a snapshot header's paths read back wrong");
    reader->SetAnsi(header.isAnsi);
    reader->SetLargePage(header.isLargePage);
    reader->rawMode = header.rawMode;
    BoundedProgress progress;
    reader->SetProgressSink(&progress);
    marrow::MemoryTree tree;
    const marrow::TreeItem root = tree.AddRoot("snapshot", 0);
    marrow::RecoverStore(*reader, tree, root, false, path);
    reach.snapshotFolders += reader->folders.size();
    reach.treeItems += WalkTree(tree, root).size();
    ListFolderItems(*reader, false);
    reader->SetProgressSink(nullptr);
  }
  std::filesystem::remove(temp);
  std::remove(path.c_str());
}

void ExerciseStore(const std::uint8_t* data, std::size_t size, const std::string& scratch) {
  marrow::StoreReader reader(scratch);
  if (!reader.OpenSource(
          std::make_unique<marrow::MemorySource>(std::vector<std::uint8_t>(data, data + size))))
    Fail("opening a memory source failed");
  Check(reader.FileSize() == size, "the reader's file size is not the input's");

  // The form the header names first, then the other three, each with the
  // roots the open found and, where they differ, the roots a header of that
  // form's width keeps.
  const int headerAnsi = reader.IsAnsi();
  const bool headerLarge = reader.IsLargePage();
  const std::uint64_t openNodeRoot = reader.nodeRootOffset, openBlockRoot = reader.blockRootOffset;
  std::vector<std::uint8_t> header = reader.ReadAt(0, 0x200);
  Check(header.size() == 0x200, "ReadAt did not return the size asked for");
  auto u32 = [&](std::size_t at) {
    return static_cast<std::uint64_t>(
        static_cast<std::int64_t>(static_cast<std::int32_t>(marrow::ReadU32(header, at))));
  };
  const std::uint64_t ansiRoots[2] = {u32(kAnsiNodeRoot), u32(kAnsiBlockRoot)};
  const std::uint64_t wideRoots[2] = {marrow::ReadU64(header, kWideNodeRoot),
                                      marrow::ReadU64(header, kWideBlockRoot)};

  const std::pair<int, bool> forms[4] = {{headerAnsi, headerLarge},
                                         {headerAnsi, !headerLarge},
                                         {!headerAnsi, headerLarge},
                                         {!headerAnsi, !headerLarge}};
  std::vector<marrow::FolderRow> knownRows;
  for (const auto& [ansi, large] : forms) {
    reader.SetAnsi(ansi);
    reader.SetLargePage(large);
    reader.nodeRootOffset = openNodeRoot;
    reader.blockRootOffset = openBlockRoot;
    ExerciseForm(reader);
    if (knownRows.empty()) knownRows = reader.folderRows;
    const std::uint64_t* roots = ansi ? ansiRoots : wideRoots;
    if (roots[0] != openNodeRoot || roots[1] != openBlockRoot) {
      reader.nodeRootOffset = roots[0];
      reader.blockRootOffset = roots[1];
      ExerciseForm(reader);
    }
  }

  // Deep mode in the header's form, with a scan that knows every block, and
  // with no scratch folder, so that joins are kept in memory.
  FakeScan scan(reader.FileSize());
  reader.SetAnsi(headerAnsi);
  reader.SetLargePage(headerLarge);
  reader.nodeRootOffset = openNodeRoot;
  reader.blockRootOffset = openBlockRoot;
  reader.SetScanIndex(&scan);
  reader.deepMode = true;
  reader.tempFolder = scratch + "/absent";
  ExerciseForm(reader, &knownRows);
  reader.tempFolder = scratch;
  reader.deepMode = false;
  reader.SetScanIndex(nullptr);

  CheckSummary(reader, size);
  ExerciseScan(reader);
}

// The codec on the raw bytes: both byte codes must undo themselves, and an
// inflate with a smaller bound must give a prefix of the larger one.
// The raw bytes read as one heap block, in both heap-id layouts, with a
// made-up join of two segments so that segment ids resolve somewhere.
void ExerciseHeap(const std::uint8_t* data, std::size_t size, const std::string& scratch) {
  marrow::StoreReader reader(scratch);
  const marrow::Bytes block(data, std::min<std::size_t>(size, marrow::kMaxBlockSize));
  const std::vector<marrow::HeapSegment> segments = {{0, block.size() / 2}, {block.size() / 2, block.size() - block.size() / 2}};
  for (bool large : {false, true}) {
    reader.SetLargePage(large);
    ReadHeap(reader, block, &segments, {});
  }
}

// The raw bytes as a compressed RTF value, decompressed and checked.
void ExerciseRtf(const std::uint8_t* data, std::size_t size, const std::string& scratch) {
  const std::string out = scratch + "/raw.rtf";
  if (marrow::DecompressRtf(data, size, out)) {
    std::error_code ec;
    const std::uintmax_t written = std::filesystem::file_size(out, ec);
    // Each input byte gives at most 17 output bytes (a reference), plus the closing braces.
    Check(!ec && written <= 17 * std::uintmax_t{size} + 2, "RTF output larger than its input allows");
    marrow::CheckRtfFile(out);
  }
  std::remove(out.c_str());
}

void ExerciseCodec(const std::uint8_t* data, std::size_t size) {
  const std::size_t n = std::min<std::size_t>(size, 0x20000);
  const std::uint64_t key = size >= 4 ? marrow::ReadU32(Bytes(data, size), 0) : size;
  std::vector<std::uint8_t> plain(data, data + n);

  std::vector<std::uint8_t> work = plain;
  work.reserve(1);  // a buffer, even for empty input: only a null one is refused
  Check(marrow::DecodeBlock(work.data(), work.size(), key, false, marrow::kCryptPermute) == 0,
        "permute encoding refused");
  Check(marrow::DecodeBlock(work.data(), work.size(), key, true, marrow::kCryptPermute) == 0,
        "permute decoding refused");
  Check(work == plain, "permute decoding does not undo encoding");

  Check(marrow::DecodeBlock(work.data(), work.size(), key, true, marrow::kCryptCyclic) == 0,
        "cyclic decoding refused");
  Check(marrow::DecodeBlock(work.data(), work.size(), key, true, marrow::kCryptCyclic) == 0,
        "cyclic decoding refused");
  Check(work == plain, "the cyclic code is not its own inverse");

  const int other = size > 0 ? 3 + data[0] % 200 : 3;
  Check(marrow::DecodeBlock(work.data(), work.size(), key, true, other) == -1,
        "an unknown method was accepted");
  Check(marrow::DecodeBlock(work.data(), work.size(), key, true, marrow::kCryptNone) == -1,
        "method none was accepted");
  Check(work == plain, "a refused method changed the bytes");
  Check(marrow::DecodeBlock(nullptr, 16, key, true, marrow::kCryptPermute) == -1,
        "a null buffer was accepted");

  const Bytes in(data, size);
  const std::vector<std::uint8_t> full = marrow::InflateBuffer(in);
  Check(full.size() <= marrow::kMaxInflatedSize, "inflate passed its default bound");
  const std::size_t small = size > 1 ? 1 + data[1] * 37 : 1;
  const std::vector<std::uint8_t> cut = marrow::InflateBuffer(in, small);
  Check(cut.size() <= small, "inflate passed its bound");
  Check(cut.size() <= full.size() && std::equal(cut.begin(), cut.end(), full.begin()),
        "a bounded inflate is not a prefix of the full one");
  Check(marrow::LooksDeflated(in) == (size >= 2 && data[0] == 0x78 && data[1] == 0x9C),
        "LooksDeflated disagrees with the zlib header");
}

}  // namespace

// Undefined behaviour must stop the run like a crash, whatever flags the
// library was built with; without sanitizers nothing reads this.
extern "C" const char* __ubsan_default_options() {
  return "halt_on_error=1:print_stacktrace=1";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  reach = {};
  ExerciseCodec(data, size);
  const ScratchFolder scratch;
  ExerciseHeap(data, size, scratch.Path());
  ExerciseRtf(data, size, scratch.Path());
  {
    // The scan's disk lists go to the system's temp folder: the scratch
    // folder stands in for it, so that a list left behind is seen too.
    const TempFolderOverride temp(scratch.Path());
    ExerciseStore(data, size, scratch.Path());
    Input in{data, size, scratch.Path(), scratch.Path() + "/store.bin"};
    WriteFile(in.storePath, std::vector<std::uint8_t>(data, data + size));
    ExerciseRecovery(in);
    ExerciseSnapshotFile(in);
    std::remove(in.storePath.c_str());
  }
  scratch.CheckEmpty();
  static const bool verbose = std::getenv("STORE_FUZZ_VERBOSE") != nullptr;
  if (verbose) {
    std::fprintf(stderr,
                 "reached: %zu folder rows, %zu items, %zu subnode rows, %zu tree bytes, "
                 "%zu block bytes, %zu joins, %zu heap values; recovery: %zu tree items, "
                 "%zu scanned folders, %zu orphan folders, %zu folder items, %zu snapshot folders\n",
                 reach.folders, reach.items, reach.subnodes, reach.treeBytes, reach.blockBytes,
                 reach.joins, reach.heapValues, reach.treeItems, reach.lostFolders, reach.orphans,
                 reach.folderItems, reach.snapshotFolders);
  }
  return 0;
}
