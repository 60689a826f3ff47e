// One open store: its file and header (StoreFile), the walks of its node and
// block indexes, and the readers of its blocks, subnodes and heaps. What a
// recovery finds is kept by whoever runs it (RecoveryState), not here.
//
// A reader is used by one thread at a time: look-ups remember their answers
// and the readers share scratch state, so nothing here is synchronised.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "store/byte_order.h"
#include "store/byte_sink.h"
#include "store/heap_map.h"
#include "store/node_rows.h"
#include "store/page_layout.h"
#include "store/progress_sink.h"
#include "store/read_limits.h"
#include "store/scan_index.h"
#include "store/store_file.h"
#include "store/visited_set.h"

namespace marrow {

struct DataTreeWalk;
class LostItemScanner;
class PropertyBag;
class PropertyValue;

class StoreReader : public StoreFile {
 public:
  // Scratch files of the readers (joins, values too large for memory) go to `tempFolder`.
  explicit StoreReader(std::string tempFolder = {});
  ~StoreReader();
  StoreReader(const StoreReader&) = delete;
  StoreReader& operator=(const StoreReader&) = delete;

  // --- Settings and companions ----------------------------------------------
  const std::string& TempFolder() const { return tempFolder_; }
  void SetTempFolder(std::string folder) { tempFolder_ = std::move(folder); }
  // A value read from a subnode stays in memory up to this size; a larger
  // one goes to a scratch file, so big bodies and attachments stay off the heap.
  std::size_t ValueMemoryLimit() const { return valueMemoryLimit_; }
  void SetValueMemoryLimit(std::size_t bytes) { valueMemoryLimit_ = bytes; }
  void SetProgressSink(ProgressSink* sink) { sink_ = sink ? sink : &nullSink_; }
  ProgressSink& Sink() { return *sink_; }
  bool Cancelled() { return sink_->IsCancelled(); }
  // The whole-file scan belongs to the reader; its lists live as long as it.
  LostItemScanner& Scanner() { return *scanner_; }
  // Once the whole-file scan has run: look-ups the indexes cannot answer go
  // to `scan`, and a folder-row walk hands node leaves to it. Null (the
  // default) reads the indexes alone.
  void SetScanIndex(ScanIndex* scan) { scan_ = scan; }
  bool UsesScan() const { return scan_ != nullptr; }
  // The store's named properties; each LoadNameMap appends them again.
  const std::vector<NamedProperty>& NamedProperties() const { return namedProperties_; }
  // The trailer of the last 4096-byte page tested, its count cut to fit.
  const PageFields& LastLargePage() const { return lastLargePage_; }

  // --- Index pages (page_check, node_walk, block_index) ---------------------
  bool CheckPage(Bytes page, bool force, PageFields& fields);
  // The folder rows of the node index, breadth first from its root.
  std::vector<FolderRow> ReadFolderRows();
  // Look-ups of the block index are remembered (the answers cannot change
  // while the file is open); `visited` only grows when the index is read.
  bool FindBlock(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset, std::uint64_t& size,
                 VisitedSet& visited);
  void ForgetBlockLookups() { blockMemo_.clear(); }
  // Returns 1 and the node's blocks when a leaf row with `nodeId` was found
  // (the last equal row of that leaf wins), else 0.
  std::int64_t FindNodeRow(std::uint64_t pageOffset, std::uint64_t nodeId, std::uint64_t& dataBlock,
                           std::uint64_t& subnodeBlock, VisitedSet& visited);
  void ListNodeChildren(std::uint64_t pageOffset, std::uint64_t folderNodeId, VisitedSet& visited,
                        const ItemHandler& handler);
  // Every leaf row of the node index below `pageOffset`, in the order a
  // folder listing meets them.
  void ForEachNodeEntry(std::uint64_t pageOffset, VisitedSet& visited,
                        const std::function<void(const NodeEntry&)>& visit);
  void CollectBranchRows(Bytes page, unsigned count, unsigned size, std::vector<std::uint64_t>& keys,
                         std::vector<std::uint64_t>& offsets);
  std::uint64_t DescendBranch(Bytes page, unsigned count, unsigned size, std::uint64_t key, int flag,
                              std::vector<std::uint64_t>& offsets, std::vector<std::uint64_t>& keys);

  // --- Blocks (block_read, subnode_read) ------------------------------------
  void ReadBlockInto(std::uint64_t blockId, ByteSink& out);
  void ReadDataTreeInto(std::uint64_t blockId, ByteSink& out);
  void ReadSubnodeList(std::uint64_t subnodeBlockId, SubnodeLists& lists);
  void ReadSubnodeInto(std::uint64_t nodeId, const SubnodeLists& lists, ByteSink& out, std::uint64_t& childSubnode);
  // A subnode that holds a heap (a table, an attachment's properties): its
  // block made plain and whole, with where each joined block starts. False
  // when the subnode is not there or cannot be read.
  bool ReadSubnodeHeap(std::uint64_t nodeId, const SubnodeLists& lists, std::vector<std::uint8_t>& buffer,
                       std::vector<HeapSegment>& segments, std::uint64_t& childSubnode);
  // Makes one block buffer plain and whole, in place, and votes on its encoding.
  void NormalizeBlock(std::vector<std::uint8_t>& buffer, std::uint64_t key, std::vector<HeapSegment>* segments);

  // --- Heaps (heap_reader, name_map) ----------------------------------------
  // Finds the bytes of heap id `heapId` in a normalised block whose map lies
  // at `base`. True with start 0 means nothing is at that id.
  bool ResolveHeapId(Bytes buffer, std::uint64_t base, std::uint32_t heapId, std::uint64_t& start, std::uint64_t& end,
                     const std::vector<HeapSegment>* segments);
  // Reads a property list into `bag`, or with `wantTable` a table into `rows`.
  void ReadPropertyBag(Bytes buffer, PropertyBag* bag, std::vector<PropertyBag>* rows,
                       const std::vector<HeapSegment>* segments, const SubnodeLists& subnodes, bool headersOnly,
                       bool wantTable);
  // Finds, reads and normalises a node's data block, then reads its property list.
  bool ReadBagFromBlock(std::uint64_t dataBlock, PropertyBag& bag, const SubnodeLists& subnodes);
  // The same for a block already located at `offset`; false when it cannot be read.
  bool ReadBagAt(std::uint64_t offset, std::uint64_t size, std::uint64_t blockId, PropertyBag& bag,
                 const SubnodeLists& subnodes);
  // Appends the store's named properties (node 0x61) to NamedProperties().
  void LoadNameMap();

 private:
  // Reads one page at `offset` into `page` (zero-filled past the end of the file).
  void ReadPage(std::uint64_t offset, std::vector<std::uint8_t>& page);
  void WalkNodePage(std::uint64_t pageOffset, std::deque<std::uint64_t>& pending, std::vector<FolderRow>& rows);
  bool FindBlockInIndex(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset, std::uint64_t& size,
                        VisitedSet& visited);
  bool SearchBlockIndex(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset, std::uint64_t& size,
                        VisitedSet& visited);
  void ReadDataTreeAt(std::uint64_t blockId, ByteSink& out, int depth, DataTreeWalk& walk);
  void WalkIndexBlockChildren(Bytes block, ByteSink& out, int depth, DataTreeWalk& walk);
  void NormalizeAt(std::vector<std::uint8_t>& buffer, std::uint64_t key, std::vector<HeapSegment>* segments, int depth);
  void JoinIndexBlock(std::vector<std::uint8_t>& buffer, std::uint64_t key, std::vector<HeapSegment>* segments,
                      int depth);
  bool ReadHeapValue(Bytes buffer, std::uint64_t mapBase, std::uint16_t id, std::uint16_t type, std::uint32_t value,
                     const std::vector<HeapSegment>* segments, const SubnodeLists& subnodes, bool skipSubnodes,
                     PropertyValue& out);
  void ReadTableRows(Bytes buffer, const HeapMap& map, std::vector<PropertyBag>* rows,
                     const std::vector<HeapSegment>* segments, const SubnodeLists& subnodes);
  // Reads, decodes and inflates one block as the streaming readers do.
  bool ReadOneBlock(std::uint64_t id, std::vector<std::uint8_t>& data, bool anyInflatedLength);

  std::string tempFolder_;
  std::size_t valueMemoryLimit_ = 64 * 1024;
  std::vector<NamedProperty> namedProperties_;
  PageFields lastLargePage_;

  // Block-index look-ups already made. A look-up depends only on the file's
  // bytes, the root and the form, so the memo is dropped when any changes.
  struct BlockLocation {
    bool found;
    std::uint64_t offset;
    std::uint64_t size;
  };
  std::unordered_map<std::uint64_t, BlockLocation> blockMemo_;
  std::uint32_t memoGeneration_ = 0;
  std::uint64_t memoRoot_ = 0;
  int memoAnsi_ = -1;
  bool memoLarge_ = false;

  ProgressSink nullSink_;
  ProgressSink* sink_ = &nullSink_;
  std::unique_ptr<LostItemScanner> scanner_;
  ScanIndex* scan_ = nullptr;
};

}  // namespace marrow
