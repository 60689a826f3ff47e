// The whole-file scan: finds node rows and block trailers that the indexes
// no longer reach, and keeps them in disk-backed lists.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "store/byte_order.h"
#include "store/scan_block_index.h"
#include "store/scan_index.h"
#include "store/scan_rows.h"

namespace marrow {

class StoreReader;

class LostItemScanner final : public ScanIndex {
 public:
  // The scanner reads the reader's file and form at each use.
  explicit LostItemScanner(StoreReader& reader);

  void ScanFile();
  void ScanChunk(Bytes buffer, std::size_t length, std::uint64_t baseOffset);
  // `page` runs from the page to the end of the scan buffer: trailer tests
  // of the large form reach past the page itself.
  void ScanPage(Bytes page, std::size_t length);
  void ExtractNodeRows(Bytes page) override;
  // Rows of a block index leaf met by a deep walk go to the block lists.
  void ExtractBlockRows(Bytes page);
  void ScanBlockTrailers(Bytes page, std::size_t length);
  bool CheckBlockAt(std::uint64_t offset, std::uint32_t size, std::uint32_t checksum);

  bool ScanFindBlock(std::uint64_t blockId, std::uint64_t& offset, std::uint64_t& size) override;
  void ScanAllBlocks(std::uint64_t blockId, std::vector<std::uint64_t>& offsets, std::vector<std::uint64_t>& sizes);

  // Folder rows, message rows, and the blocks.
  ScannedNodeList folders{"SDNLList"};
  ScannedNodeList messages{"SDNLList2"};
  ScannedBlockList blocks{"SONList"};

  std::uint64_t currentOffset = 0;

 private:
  // CheckBlockAt, remembering recent answers.
  bool CheckedBlockAt(std::uint64_t offset, std::uint32_t size, std::uint32_t checksum);

  struct CheckMemo {
    std::uint64_t offset;
    std::uint32_t size;
    std::uint32_t checksum;
    bool valid;
    bool accepted;
  };
  std::array<CheckMemo, 1024> checkMemo_{};

  StoreReader& reader_;
  ScanBlockIndex blockIndex_;
};

// The reflected CRC-32 (polynomial 0xEDB88320) started at 0, with no final
// inversion, as block trailers store it.
std::uint32_t BlockChecksum(Bytes data);

}  // namespace marrow
