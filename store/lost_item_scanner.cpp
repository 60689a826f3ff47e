#include "store/lost_item_scanner.h"

#include <array>
#include <cstdio>

#include "store/page_rows.h"
#include "store/store_reader.h"

namespace marrow {
namespace {

constexpr std::size_t kChunk = 0x10000;

std::array<std::uint32_t, 256> MakeCrcTable() {
  std::array<std::uint32_t, 256> t{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t c = i;
    for (int k = 0; k < 8; ++k) c = c & 1 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
    t[i] = c;
  }
  return t;
}

// Where one trailer's fields sit inside its unit, by form.
struct TrailerLayout {
  std::size_t unit, size, signature, checksum, id;
  bool wideId;
  std::uint32_t overhead;  // trailer bytes counted in a block's length in units
};
constexpr TrailerLayout kAnsiTrailer{64, 0x34, 0x36, 0x3C, 0x38, false, 12};
constexpr TrailerLayout kWideTrailer{64, 0x30, 0x32, 0x34, 0x38, true, 16};
// The large form's trailer is 24 bytes, but lengths still count 16.
constexpr TrailerLayout kLargeTrailer{512, 0x1E8, 0x1EA, 0x1EC, 0x1F0, true, 16};

// How many rows of an index page the scan reads; 0 for a page it does not
// take. In the 512-byte forms every slot of a leaf is read, also those
// behind the count, since rows of deleted items stay there; in the large
// form the stored count stands and branch pages are read as rows too.
unsigned RowsToRead(const PageFields& f, const PageLayout& layout, bool large, unsigned wantMax, unsigned wantSize) {
  if (f.max != wantMax || f.size != wantSize) return 0;
  unsigned count = 0;
  if (large) {
    if (f.count > f.max) return 0;
    count = std::size_t{f.count} * f.size > layout.rowLimit ? layout.rowLimit / f.size : f.count;
  } else {
    if (f.level != 0) return 0;
    count = static_cast<unsigned>(layout.rowLimit / f.size);
  }
  return count > 254 ? 255 : count;
}

}  // namespace

std::uint32_t BlockChecksum(Bytes data) {
  static const std::array<std::uint32_t, 256> table = MakeCrcTable();
  std::uint32_t crc = 0;
  for (std::uint8_t b : data) crc = table[(crc ^ b) & 0xFF] ^ (crc >> 8);
  return crc;
}

LostItemScanner::LostItemScanner(StoreReader& reader) : reader_(reader) {}

void LostItemScanner::ScanFile() {
  if (!reader_.IsOpen()) return;
  const std::uint64_t size = reader_.FileSize();
  const std::uint64_t chunks = size / kChunk;
  const std::uint64_t rest = size % kChunk;
  // The second half stays zero: trailer tests of the last pages reach into it.
  // The first half keeps what the last read left there.
  std::vector<std::uint8_t> buffer(2 * kChunk, 0);
  for (std::uint64_t i = 0; i < chunks; ++i) {
    if (reader_.Cancelled()) break;
    if (i % 20 == 0) {
      reader_.Sink().SetProgress(static_cast<int>(i * 100 / chunks));
      char status[96];
      std::snprintf(status, sizeof status, "Processing : %llu of %llu", static_cast<unsigned long long>(i * kChunk),
                    static_cast<unsigned long long>(chunks * kChunk));
      reader_.Sink().SetStatusLine(status);
    }
    reader_.ReadInto(i * kChunk, std::span<std::uint8_t>(buffer.data(), kChunk));
    ScanChunk(buffer, kChunk, i * kChunk);
  }
  if (rest != 0) {
    reader_.ReadInto(size - rest, std::span<std::uint8_t>(buffer.data(), rest));
    ScanChunk(buffer, rest, size - rest);
  }
}

void LostItemScanner::ScanChunk(Bytes buffer, std::size_t length, std::uint64_t baseOffset) {
  const std::size_t page = reader_.IsLargePage() ? 4096 : 512;
  for (std::size_t j = 0; j < length / page; ++j) {
    currentOffset = baseOffset + j * page;
    ScanPage(buffer.subspan(j * page), page);
  }
}

void LostItemScanner::ScanPage(Bytes page, std::size_t length) {
  std::uint8_t type = 0;
  if (reader_.IsLargePage()) {
    type = ReadU8(page, 0xFE8);
  } else {
    const std::size_t at = reader_.IsAnsi() ? 0x1F4 : 0x1F0;
    const std::uint8_t repeat = ReadU8(page, at + 1);
    type = ReadU8(page, at) == repeat ? repeat : 0;  // no agreed type: data
  }
  if (type == kPageTypeNodeIndex) {
    ExtractNodeRows(page.first(length));
  } else if (type == kPageTypeBlockIndex || (type >= 0x82 && type <= 0x86)) {
    return;
  } else {
    ScanBlockTrailers(page, length);
  }
}

void LostItemScanner::ExtractNodeRows(Bytes page) {
  const bool large = reader_.IsLargePage();
  const bool ansi = reader_.IsAnsi() != 0;
  const PageLayout& layout = LayoutFor(ansi, large);
  PageFields f = ReadPageFields(page, layout);
  const bool nodeLeaf = f.level == 0;
  const unsigned count = RowsToRead(f, layout, large, nodeLeaf ? layout.nodeLeafMax : layout.otherMax,
                                    nodeLeaf ? layout.nodeLeafSize : layout.otherSize);
  NodeEntry previous{0, 0, 0, 0};
  for (unsigned i = 0; i < count; ++i) {
    const NodeEntry e = ReadNodeEntry(RowAt(page, i, f.size), ansi);
    if (e.nodeId == previous.nodeId && e.dataBlock == previous.dataBlock && e.subnodeBlock == previous.subnodeBlock &&
        e.parent == previous.parent) {
      continue;
    }
    previous = e;
    const std::uint32_t kind = e.nodeId & kNodeTypeMask;
    const ScannedNodeRow row{e.nodeId, e.dataBlock, e.subnodeBlock, e.parent, 1};
    if (kind == kNodeTypeFolder) folders.Append(row);
    if (kind == kNodeTypeMessage) messages.Append(row);
  }
}

void LostItemScanner::ExtractBlockRows(Bytes page) {
  const bool large = reader_.IsLargePage();
  const bool ansi = reader_.IsAnsi() != 0;
  const PageLayout& layout = LayoutFor(ansi, large);
  PageFields f = ReadPageFields(page, layout);
  const unsigned count = RowsToRead(f, layout, large, layout.otherMax, layout.otherSize);
  for (unsigned i = 0; i < count; ++i) {
    const BlockEntry e = ReadBlockEntry(RowAt(page, i, f.size), ansi);
    blocks.Append({e.blockId, e.fileOffset, e.size});
  }
}

void LostItemScanner::ScanBlockTrailers(Bytes page, std::size_t length) {
  const bool large = reader_.IsLargePage();
  const bool ansi = reader_.IsAnsi() != 0;
  const TrailerLayout& t = large ? kLargeTrailer : ansi ? kAnsiTrailer : kWideTrailer;
  // Sixty-four tests a page in every form; the large form's units are
  // 512 bytes, so its tests reach 32 KiB past the page.
  for (std::size_t k = 0; k < length / 64; ++k) {
    const Bytes unit = page.size() > k * t.unit ? page.subspan(k * t.unit) : Bytes();
    const std::uint32_t size = ReadU16(unit, t.size);
    const std::uint16_t signature = ReadU16(unit, t.signature);
    const std::uint32_t checksum = ReadU32(unit, t.checksum);
    const std::uint64_t id = t.wideId ? ReadU64(unit, t.id) : ReadU32(unit, t.id);
    if (size == 0) continue;
    if (large ? static_cast<std::int64_t>(id) <= 0 : size > 0x2000) continue;
    const std::int64_t e = static_cast<std::int64_t>(currentOffset + k * t.unit);
    if (e - static_cast<std::int64_t>(size) + static_cast<std::int64_t>(t.unit) <= 0) continue;
    const std::int64_t units = (size + t.overhead + t.unit - 1) / t.unit;
    const std::int64_t start = e + static_cast<std::int64_t>(t.unit) - units * static_cast<std::int64_t>(t.unit);
    if (start < 0) continue;  // a block cannot begin before the file
    std::uint64_t x = static_cast<std::uint64_t>(start) ^ id;
    if (ansi) x &= 0xFFFFFFFFu;
    const std::uint16_t expected = static_cast<std::uint16_t>(x ^ (x >> 16));
    if (expected != signature && !CheckedBlockAt(static_cast<std::uint64_t>(start), size, checksum)) continue;
    blocks.Append({id, static_cast<std::uint64_t>(start), static_cast<std::uint16_t>(size)});
  }
}

bool LostItemScanner::CheckedBlockAt(std::uint64_t offset, std::uint32_t size, std::uint32_t checksum) {
  // The large form tests each unit from eight pages in a row, so the same
  // block is checked eight times; the file does not change, nor the answer.
  CheckMemo& memo = checkMemo_[((offset >> 6) ^ (size * 31) ^ checksum) % checkMemo_.size()];
  if (memo.valid && memo.offset == offset && memo.size == size && memo.checksum == checksum) return memo.accepted;
  memo = {offset, size, checksum, true, CheckBlockAt(offset, size, checksum)};
  return memo.accepted;
}

bool LostItemScanner::CheckBlockAt(std::uint64_t offset, std::uint32_t size, std::uint32_t checksum) {
  if (offset >= reader_.FileSize()) return false;
  const std::vector<std::uint8_t> data = reader_.ReadAt(offset, size);
  return BlockChecksum(data) == checksum;
}

bool LostItemScanner::ScanFindBlock(std::uint64_t blockId, std::uint64_t& offset, std::uint64_t& size) {
  if (blockIndex_.Update(blocks)) return blockIndex_.Find(blockId, offset, size);
  blocks.Rewind();
  ScannedBlockRow row;
  while (blocks.Next(row)) {
    if (row.blockId != blockId) continue;
    offset = row.fileOffset;  // the first match wins
    size = row.size;
    return true;
  }
  return false;
}

void LostItemScanner::ScanAllBlocks(std::uint64_t blockId, std::vector<std::uint64_t>& offsets,
                                    std::vector<std::uint64_t>& sizes) {
  if (blockIndex_.Update(blocks)) {
    blockIndex_.FindAll(blockId, offsets, sizes);
    return;
  }
  blocks.Rewind();
  ScannedBlockRow row;
  while (blocks.Next(row)) {
    if (row.blockId != blockId) continue;
    offsets.push_back(row.fileOffset);
    sizes.push_back(row.size);
  }
}

}  // namespace marrow
