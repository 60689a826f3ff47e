// Look-ups in the block index.
#include "store/page_rows.h"
#include "store/store_reader.h"

namespace marrow {

bool StoreReader::FindBlock(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset,
                            std::uint64_t& size, VisitedSet& visited) {
  bool found = false;
  try {
    found = FindBlockInIndex(rootOffset, blockId, fileOffset, size, visited);
  } catch (...) {
  }
  // Once the scan has run, a block the index cannot reach may still be in
  // the scan's lists.
  if (found || scan_ == nullptr) return found;
  return scan_->ScanFindBlock(blockId, fileOffset, size);
}

bool StoreReader::FindBlockInIndex(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset,
                                   std::uint64_t& size, VisitedSet& visited) {
  if (Generation() != memoGeneration_ || rootOffset != memoRoot_ || IsAnsi() != memoAnsi_ ||
      IsLargePage() != memoLarge_) {
    blockMemo_.clear();
    memoGeneration_ = Generation();
    memoRoot_ = rootOffset;
    memoAnsi_ = IsAnsi();
    memoLarge_ = IsLargePage();
  }
  if (auto hit = blockMemo_.find(blockId); hit != blockMemo_.end()) {
    if (hit->second.found) {
      fileOffset = hit->second.offset;
      size = hit->second.size;
    }
    return hit->second.found;
  }
  constexpr std::size_t kMemoLimit = 1 << 16;
  if (blockMemo_.size() >= kMemoLimit) blockMemo_.clear();
  std::uint64_t offset = 0, length = 0;
  const bool found = SearchBlockIndex(rootOffset, blockId, offset, length, visited);
  blockMemo_.emplace(blockId, BlockLocation{found, offset, length});
  if (found) {
    fileOffset = offset;
    size = length;
  }
  return found;
}

bool StoreReader::SearchBlockIndex(std::uint64_t rootOffset, std::uint64_t blockId, std::uint64_t& fileOffset,
                                   std::uint64_t& size, VisitedSet& visited) {
  const std::uint64_t fileSize = FileSize();
  if (rootOffset >= fileSize) return false;
  std::vector<std::uint64_t> pending;
  std::vector<std::uint8_t> page;
  std::vector<std::uint64_t> scratchKeys, scratchOffsets;

  // One page: true when its leaf holds the block. A branch page adds the
  // one child that can hold the key; there is no probing of siblings.
  auto step = [&](std::uint64_t offset) {
    if (!visited.Add(offset)) return false;
    if (offset >= fileSize) return false;
    ReadPage(offset, page);
    PageFields f;
    if (ReadU8(page, Layout().typeOffset) != kPageTypeBlockIndex) return false;
    if (!CheckPage(page, true, f)) return false;
    if (f.level == 0) {
      for (unsigned i = 0; i < f.count; ++i) {
        BlockEntry e = ReadBlockEntry(RowAt(page, i, f.size), IsAnsi() != 0);
        if (e.blockId == blockId) {  // the first equal row wins
          fileOffset = e.fileOffset;
          size = e.size;
          return true;
        }
      }
      return false;
    }
    std::uint64_t child = DescendBranch(page, f.count, f.size, blockId, 1, scratchOffsets, scratchKeys);
    if (child != 0) pending.push_back(child);
    return false;
  };

  if (step(rootOffset)) return true;
  for (std::size_t i = 0; i < pending.size() && i < kMaxIndexDepth; ++i) {
    if (step(pending[i])) return true;
  }
  return false;
}

}  // namespace marrow
