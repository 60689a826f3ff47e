// One open store file: its form, its two indexes and its blocks.
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
#include "store/byte_source.h"
#include "store/folder_record.h"
#include "store/page_layout.h"
#include "store/progress_sink.h"
#include "store/scan_index.h"
#include "store/visited_set.h"

namespace marrow {

struct DataTreeWalk;
struct HeapMap;
class LostItemScanner;
class PropertyBag;
class PropertyValue;

// A named property of the store: its numeric name in a property set, and the
// property id the store uses for it.
struct NamedProperty {
  std::uint32_t numericName;
  std::uint16_t propId;
  std::string guidText;  // "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}"
};

// A folder node as the node index lists it.
struct FolderRow {
  std::uint64_t nodeId;
  std::uint64_t dataBlock;
  std::uint64_t subnodeBlock;
  std::uint64_t parent;
};

// One row of a node's subnode list.
struct SubnodeRow {
  std::uint64_t nodeId;  // the 32-bit id
  std::uint64_t dataBlock;
  std::uint64_t subnodeBlock;
  std::uint64_t storedId = 0;  // the id field as stored, padding included
};
using SubnodeLists = std::vector<SubnodeRow>;

// Where each joined child of a multi-block heap starts in the joined buffer.
struct HeapSegment {
  std::uint64_t start;
  std::uint64_t length;
};

// Receives each message node of a folder listing.
using ItemHandler =
    std::function<void(std::uint64_t dataBlock, std::uint64_t nodeId, std::uint64_t subnodeBlock)>;

// Form of a store as its version word tells it.
struct StoreForm {
  int isAnsi;
  bool isLargePage;
};
StoreForm FormForVersion(std::uint16_t versionWord);

// Size limits of block reading.
constexpr std::uint64_t kMaxBlockSize = 0x10000;
constexpr std::size_t kMaxInflatedBlock = 0x20000;
// Nested index blocks in real stores go two levels deep; this bounds what a
// damaged or hostile file can make the readers recurse through.
constexpr int kMaxBlockTreeDepth = 8;
// The most bytes an index-block join may gather. A join larger than a block
// is only ever used through its first bytes, so nothing real is lost.
constexpr std::size_t kMaxJoinSize = 0x100000;
// Joins nest once in a real store (a two-level tree joins its index blocks,
// whose join joins the data blocks); deeper nesting only comes from damage.
constexpr int kMaxJoinDepth = 2;
// Index pages one look-up may descend through below the root. Real indexes
// are a few levels deep; a longer descent follows a chain of damaged pages,
// and following it for every id of a large index block takes seconds.
constexpr std::size_t kMaxIndexDepth = 16;

class StoreReader {
 public:
  explicit StoreReader(std::string tempFolder = {});
  virtual ~StoreReader();
  StoreReader(const StoreReader&) = delete;
  StoreReader& operator=(const StoreReader&) = delete;

  // --- The file and its header -------------------------------------------
  // Opens with exclusive access. Fails only when the file cannot be opened;
  // a header that lies is not refused.
  bool OpenStore(const std::string& path);
  // The same over any byte source (tests and fuzzing feed memory).
  bool OpenSource(std::unique_ptr<ByteSource> source, const std::string& path = {});
  bool IsOpen() const { return file_ != nullptr; }
  std::uint64_t FileSize() const { return file_ ? file_->Size() : 0; }

  int IsAnsi() const { return isAnsi_; }
  void SetAnsi(int isAnsi) { isAnsi_ = isAnsi; }
  bool IsLargePage() const { return isLargePage_; }
  void SetLargePage(bool isLargePage) { isLargePage_ = isLargePage; }
  int CryptMethod() const { return cryptMethod_; }
  // The vote: the method with strictly the most votes wins; a tie takes `fallback`.
  void UpdateCryptMethod(int fallback);
  const std::string& LastError() const { return lastError; }

  void SetProgressSink(ProgressSink* sink) { sink_ = sink ? sink : &nullSink_; }
  ProgressSink& Sink() { return *sink_; }
  bool Cancelled() { return sink_->IsCancelled(); }
  // The whole-file scan belongs to the reader; its lists live as long as it.
  LostItemScanner& Scanner() { return *scanner_; }
  // Deep look-ups go to the reader's own scanner unless another index is set.
  void SetScanIndex(ScanIndex* scan) { scan_ = scan; }

  // --- Index pages --------------------------------------------------------
  bool CheckPage(Bytes page, bool force, PageFields& fields);
  void WalkNodePage(std::uint64_t pageOffset, std::deque<std::uint64_t>& pending);
  void BuildFolderRows();
  // Look-ups of the block index are remembered (the answers cannot change
  // while the file is open); `visited` only grows when the index is read.
  bool FindBlock(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset,
                 std::uint64_t& size, VisitedSet& visited);
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

  // --- Blocks -------------------------------------------------------------
  void ReadBlockInto(std::uint64_t blockId, ByteSink& out);
  void ReadDataTreeInto(std::uint64_t blockId, ByteSink& out);
  void ReadSubnodeList(std::uint64_t subnodeBlockId, SubnodeLists& lists);
  void ReadSubnodeInto(std::uint64_t nodeId, const SubnodeLists& lists, ByteSink& out,
                       std::uint64_t& childSubnode);
  // A subnode that holds a heap (a table, an attachment's properties): its
  // block made plain and whole, with where each joined block starts. False
  // when the subnode is not there or cannot be read.
  bool ReadSubnodeHeap(std::uint64_t nodeId, const SubnodeLists& lists, std::vector<std::uint8_t>& buffer,
                       std::vector<HeapSegment>& segments, std::uint64_t& childSubnode);
  // Makes one block buffer plain and whole, in place, and votes on its encoding.
  void NormalizeBlock(std::vector<std::uint8_t>& buffer, std::uint64_t key,
                      std::vector<HeapSegment>* segments);

  // --- Heaps ---------------------------------------------------------------
  // Finds the bytes of heap id `heapId` in a normalised block whose map lies
  // at `base`. True with start 0 means nothing is at that id.
  bool ResolveHeapId(Bytes buffer, std::uint64_t base, std::uint32_t heapId, std::uint64_t& start,
                     std::uint64_t& end, const std::vector<HeapSegment>* segments);
  // Reads a property list into `bag`, or with `wantTable` a table into `rows`.
  void ReadPropertyBag(Bytes buffer, PropertyBag* bag, std::vector<PropertyBag>* rows,
                       const std::vector<HeapSegment>* segments, const SubnodeLists& subnodes,
                       bool headersOnly, bool wantTable);
  // Finds, reads and normalises a node's data block, then reads its property list.
  bool ReadBagFromBlock(std::uint64_t dataBlock, PropertyBag& bag, const SubnodeLists& subnodes);
  // The same for a block already located at `offset`; false when it cannot be read.
  bool ReadBagAt(std::uint64_t offset, std::uint64_t size, std::uint64_t blockId, PropertyBag& bag,
                 const SubnodeLists& subnodes);
  // Appends the store's named properties (node 0x61) to `namedProperties`.
  void LoadNameMap();

  // Reads `size` bytes at `offset` into a zeroed buffer (short at the end of the file).
  std::vector<std::uint8_t> ReadAt(std::uint64_t offset, std::size_t size);
  // Reads into `out` as far as the file goes; the rest of `out` is left as it was.
  std::size_t ReadInto(std::uint64_t offset, std::span<std::uint8_t> out) {
    return file_ ? file_->ReadAt(offset, out) : 0;
  }

  // --- State, as plain fields -------------------------------------------
  std::int64_t noneVotes = 0;
  std::int64_t permuteVotes = 0;
  std::int64_t cyclicVotes = 0;
  std::uint32_t saveDeletedMode = 0;
  bool retryPass = false;
  bool stopListing = false;
  std::uint16_t pageEntryCount = 0, pageEntryMax = 0;
  std::uint8_t pageEntrySize = 0, pageLevel = 0;
  bool snapshotMode = false;
  std::vector<FolderRow> folderRows;
  // The folders of the rebuilt tree, in the order the recovery found them.
  std::vector<FolderRecord> folders;
  bool rawMode = false;
  std::string tempFolder;
  // A value read from a subnode stays in memory up to this size; a larger
  // one goes to a scratch file, so big bodies and attachments stay off the heap.
  std::size_t valueMemoryLimit = 64 * 1024;
  std::string lastError;
  std::uint64_t blockRootOffset = 0;
  std::uint64_t nodeRootOffset = 0;
  std::string sourcePath;
  bool deepMode = false;
  std::vector<NamedProperty> namedProperties;
  // Data blocks of messages already handed on by a deep folder listing.
  std::vector<std::uint64_t> shownBlocks;
  // Header values kept for display.
  std::uint16_t versionWord = 0;
  std::uint8_t cryptByte = 0;

 private:
  const PageLayout& Layout() const { return LayoutFor(isAnsi_ != 0, isLargePage_); }
  // Reads one page at `offset` into `page` (zero-filled past the end of the file).
  void ReadPage(std::uint64_t offset, std::vector<std::uint8_t>& page);
  bool FindBlockInIndex(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset,
                        std::uint64_t& size, VisitedSet& visited);
  bool SearchBlockIndex(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset,
                        std::uint64_t& size, VisitedSet& visited);
  void ReadDataTreeAt(std::uint64_t blockId, ByteSink& out, int depth, DataTreeWalk& walk);
  void WalkIndexBlockChildren(Bytes block, ByteSink& out, int depth, DataTreeWalk& walk);
  void NormalizeAt(std::vector<std::uint8_t>& buffer, std::uint64_t key,
                   std::vector<HeapSegment>* segments, int depth);
  void JoinIndexBlock(std::vector<std::uint8_t>& buffer, std::uint64_t key,
                      std::vector<HeapSegment>* segments, int depth);
  bool ReadHeapValue(Bytes buffer, std::uint64_t mapBase, std::uint16_t id, std::uint16_t type,
                     std::uint32_t value, const std::vector<HeapSegment>* segments,
                     const SubnodeLists& subnodes, bool skipSubnodes, PropertyValue& out);
  void ReadTableRows(Bytes buffer, const HeapMap& map, std::vector<PropertyBag>* rows,
                     const std::vector<HeapSegment>* segments, const SubnodeLists& subnodes);
  // Reads, decodes and inflates one block as the streaming readers do.
  bool ReadOneBlock(std::uint64_t id, std::vector<std::uint8_t>& data, bool anyInflatedLength);

  // Block-index look-ups already made. A look-up depends only on the file's
  // bytes, the root and the form, so the memo is dropped when either changes.
  struct BlockLocation {
    bool found;
    std::uint64_t offset;
    std::uint64_t size;
  };
  std::unordered_map<std::uint64_t, BlockLocation> blockMemo_;
  std::uint64_t memoRoot_ = 0;
  int memoAnsi_ = -1;
  bool memoLarge_ = false;

  int isAnsi_ = 1;
  bool isLargePage_ = false;
  int cryptMethod_ = 0;
  std::unique_ptr<ByteSource> file_;
  ProgressSink nullSink_;
  ProgressSink* sink_ = &nullSink_;
  std::unique_ptr<LostItemScanner> scanner_;
  ScanIndex* scan_ = nullptr;
};

}  // namespace marrow
