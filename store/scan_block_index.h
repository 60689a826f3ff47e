// A sorted copy of the scan's block rows on disk, so that a block look-up
// after the scan is a binary search instead of a pass over every row.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "store/scan_rows.h"

namespace marrow {

class TempFile;

class ScanBlockIndex {
 public:
  // `runRows` rows are sorted in memory at a time (24 bytes each); longer
  // lists are sorted in runs and merged. A fence id is kept in memory for
  // every `fenceStride` rows.
  explicit ScanBlockIndex(std::size_t runRows = std::size_t{1} << 19, std::size_t fenceStride = 256);
  ~ScanBlockIndex();

  // Brings the index up to date with the scanned blocks; false when it
  // cannot be built, and the caller searches the list.
  bool Update(ScannedBlockList& blocks);

  // The first row of `blockId` in list order.
  bool Find(std::uint64_t blockId, std::uint64_t& offset, std::uint64_t& size) const;
  // Every row of `blockId`, in list order.
  void FindAll(std::uint64_t blockId, std::vector<std::uint64_t>& offsets, std::vector<std::uint64_t>& sizes) const;

  struct Entry {
    std::uint64_t id;
    std::uint64_t offset;
    std::uint32_t seq;  // position in the list: the tie-break that keeps list order
    std::uint16_t size;
    std::uint16_t unused;
  };

 private:
  bool Build(ScannedBlockList& blocks);
  // Calls `visit` on the rows of `blockId` in order; `visit` returns false to stop.
  template <typename Visit>
  void Scan(std::uint64_t blockId, Visit visit) const;

  std::size_t runRows_;
  std::size_t fenceStride_;
  std::unique_ptr<TempFile> sorted_;
  std::vector<std::uint64_t> fences_;
  std::uint64_t entries_ = 0;
  std::uint32_t builtFor_ = 0;
  bool built_ = false;
};

}  // namespace marrow
