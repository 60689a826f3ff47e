// Turning block ids into bytes: single blocks, data trees, and the in-memory
// normalisation that finds a block's encoding by trial.
#include <unordered_set>

#include "store/block_codec.h"
#include "store/heap_map.h"
#include "store/store_reader.h"
#include "store/temp_file.h"

namespace marrow {
namespace {

constexpr std::uint8_t kIndexBlockType = 1;

// Byte 2 of the buffer as `method` would decode it, without decoding the rest.
std::uint8_t DecodedThirdByte(const std::vector<std::uint8_t>& buffer, std::uint64_t key, int method) {
  std::uint8_t head[3] = {buffer[0], buffer[1], buffer[2]};
  DecodeBlock(head, 3, key, true, method);
  return head[2];
}

}  // namespace

bool StoreReader::ReadOneBlock(std::uint64_t id, std::vector<std::uint8_t>& data, bool anyInflatedLength) {
  VisitedSet visited;
  std::uint64_t offset = 0, size = 0;
  if (!FindBlock(BlockRoot(), id, offset, size, visited)) return false;
  if (size == 0 || size > kMaxBlockSize || offset >= FileSize()) return false;
  data = ReadAt(offset, size);
  if (CryptMethod() != kCryptNone) {
    DecodeBlock(data.data(), data.size(), id, true, CryptMethod());
  } else if (size >= 4 && LooksDeflated(data)) {
    // In stores that compress, no encoding is set, so a block is inflated
    // only while the verdict is "none".
    std::vector<std::uint8_t> inflated = InflateBuffer(data);
    if (anyInflatedLength || (!inflated.empty() && inflated.size() <= kMaxInflatedBlock)) {
      data = std::move(inflated);
    }
  }
  return true;
}

void StoreReader::ReadBlockInto(std::uint64_t blockId, ByteSink& out) {
  std::vector<std::uint8_t> data;
  if (ReadOneBlock(blockId & ~std::uint64_t{1}, data, false)) out.Append(data);
}

// State of one ReadDataTreeInto: index blocks already expanded, so that a
// tree naming the same index block twice (or itself) is read only once.
struct DataTreeWalk {
  std::unordered_set<std::uint64_t> expanded;
  bool sinkFull = false;
};

void StoreReader::ReadDataTreeInto(std::uint64_t blockId, ByteSink& out) {
  DataTreeWalk walk;
  ReadDataTreeAt(blockId, out, 0, walk);
}

void StoreReader::ReadDataTreeAt(std::uint64_t blockId, ByteSink& out, int depth, DataTreeWalk& walk) {
  if (walk.sinkFull || depth > kMaxBlockTreeDepth) return;
  VisitedSet visited;
  std::uint64_t offset = 0, size = 0;
  if (!FindBlock(BlockRoot(), blockId, offset, size, visited)) return;
  if (size > kMaxBlockSize || offset >= FileSize()) return;
  std::vector<std::uint8_t> data = ReadAt(offset, size);

  if (ReadU8(data, 0) == kIndexBlockType) {
    WalkIndexBlockChildren(data, out, depth, walk);
    return;
  }
  if (CryptMethod() == kCryptNone) {
    if (size >= 4 && LooksDeflated(data)) {
      data = InflateBuffer(data);
      if (!data.empty() && data[0] == kIndexBlockType) WalkIndexBlockChildren(data, out, depth, walk);
    }
    // A compressed index block's own bytes follow its children.
  } else {
    DecodeBlock(data.data(), data.size(), blockId, true, CryptMethod());
  }
  if (!walk.sinkFull && !out.Append(data)) walk.sinkFull = true;
}

void StoreReader::WalkIndexBlockChildren(Bytes block, ByteSink& out, int depth, DataTreeWalk& walk) {
  const std::uint8_t level = ReadU8(block, 1);
  const std::uint16_t count = ReadU16(block, 2);
  // Both forms stop at 8 + 4 x i, though 64-bit ids are 8 bytes wide; bytes
  // past the block read as zero.
  for (std::size_t i = 0; i < count && 8 + 4 * i <= block.size(); ++i) {
    if (walk.sinkFull) return;
    const std::uint64_t child =
        IsAnsi() ? ReadU32(block, 8 + 4 * i) : static_cast<std::uint32_t>(ReadU64(block, 8 + 8 * i));
    if (level == 1) {
      std::vector<std::uint8_t> data;
      if (ReadOneBlock(child & ~std::uint64_t{1}, data, false) && !out.Append(data)) walk.sinkFull = true;
    } else if (walk.expanded.insert(child).second) {
      ReadDataTreeAt(child, out, depth + 1, walk);
    }
  }
}

void StoreReader::NormalizeBlock(std::vector<std::uint8_t>& buffer, std::uint64_t key,
                                 std::vector<HeapSegment>* segments) {
  NormalizeAt(buffer, key, segments, 0);
}

void StoreReader::NormalizeAt(std::vector<std::uint8_t>& buffer, std::uint64_t key, std::vector<HeapSegment>* segments,
                              int depth) {
  if (buffer.size() < 2) return;
  if (LooksDeflated(buffer)) {
    buffer = InflateBuffer(buffer);
    if (ReadU8(buffer, 2) == kHeapSignature) Vote(kCryptNone);
    return;
  }
  if (ReadU8(buffer, 2) == kHeapSignature) {
    Vote(kCryptNone);
    return;
  }
  if (buffer.size() >= 3) {
    for (int method : {kCryptPermute, kCryptCyclic}) {
      if (DecodedThirdByte(buffer, key, method) != kHeapSignature) continue;
      DecodeBlock(buffer.data(), buffer.size(), key, true, method);
      Vote(method);
      return;
    }
  }
  // Not a heap in any encoding: perhaps an index block whose children,
  // joined, make one.
  if (buffer.size() > 8 && buffer[0] == kIndexBlockType && (buffer[1] == 1 || buffer[1] == 2) &&
      ReadU16(buffer, 2) != 0 && depth < kMaxJoinDepth) {
    JoinIndexBlock(buffer, key, segments, depth);
  }
}

void StoreReader::JoinIndexBlock(std::vector<std::uint8_t>& buffer, std::uint64_t key,
                                 std::vector<HeapSegment>* segments, int depth) {
  const std::size_t width = IsAnsi() ? 4 : 8;
  const std::uint16_t count = ReadU16(buffer, 2);
  // An index block is itself one block, so its ids end within the first
  // 64 KiB even when the buffer is a larger join.
  const std::size_t idsEnd = std::min<std::size_t>(buffer.size(), kMaxBlockSize);
  std::vector<std::uint64_t> ids;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = 8 + width * i;
    if (at >= idsEnd) break;
    ids.push_back(IsAnsi() ? ReadU32(buffer, at) : ReadU64(buffer, at));
  }
  if (ids.empty()) return;

  // The children are joined raw in a scratch file; only the join is decoded,
  // so a heap over several blocks counts as one vote. Should no scratch file
  // be possible, the join is kept in memory instead.
  std::unique_ptr<TempFile> scratch = TempFile::Create(tempFolder_, ".Bin");
  if (scratch) scratch->Unlink();
  std::vector<std::uint8_t> inMemory;
  std::uint64_t joined = 0;
  for (std::uint64_t id : ids) {
    VisitedSet visited;
    std::uint64_t offset = 0, size = 0;
    if (!FindBlock(BlockRoot(), id, offset, size, visited)) continue;
    if (size > kMaxBlockSize || offset >= FileSize()) continue;
    if (joined + size > kMaxJoinSize) break;
    std::vector<std::uint8_t> block = ReadAt(offset, size);
    if (scratch) {
      if (!scratch->Append(block)) break;
    } else {
      inMemory.insert(inMemory.end(), block.begin(), block.end());
    }
    if (segments) segments->push_back({joined, size});
    joined += size;
  }
  if (joined == 0) return;

  std::vector<std::uint8_t> join = scratch ? scratch->ReadAll() : std::move(inMemory);
  NormalizeAt(join, key, nullptr, depth + 1);
  // A join that does not fit one block is dropped; the caller keeps its bytes.
  if (join.size() <= kMaxBlockSize) buffer = std::move(join);
}

}  // namespace marrow
