// Writes the synthetic seeds of the store fuzzer's corpus: one small store
// per form with two-level indexes, folders, messages, a heap over two blocks,
// a data tree and subnode lists, and a damaged twin of each whose pages and
// trees refer back to themselves.
//
//   store_fuzz_seeds OUTPUT_FOLDER
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "store/block_codec.h"
#include "tests/support/store_builder.h"

namespace {

using marrow::test::BlockRow;
using marrow::test::BranchRow;
using marrow::test::Form;
using marrow::test::NodeRow;
using marrow::test::StoreBuilder;

// Block ids: data blocks are multiples of 4, internal blocks (index and
// subnode blocks) have bit 1 set.
constexpr std::uint64_t kStoreProps = 0x100, kNameMap = 0x104, kRootHeap = 0x108,
                        kInboxHeap = 0x10C, kHeapPart2 = 0x110, kMessageHeap = 0x114,
                        kAttachData1 = 0x118, kAttachData2 = 0x11C, kPlainBlock = 0x120;
constexpr std::uint64_t kInboxIndex = 0x202, kNameMapSubnodes = 0x206, kMessageSubnodes = 0x20A,
                        kAttachTree = 0x20E;

struct Seed {
  std::string name;
  Form form;
  std::uint8_t crypt;  // 0 none (and zlib in the large form), 1 permute, 2 cyclic
  bool looped;
};

std::vector<std::uint8_t> Heap(std::uint8_t fill, std::size_t size) {
  std::vector<std::uint8_t> b(size, fill);
  b[0] = static_cast<std::uint8_t>(size - 8);
  b[1] = static_cast<std::uint8_t>((size - 8) >> 8);
  b[2] = 0xEC;
  b[3] = 0xBC;
  for (std::size_t i = 4; i < size; ++i) b[i] = static_cast<std::uint8_t>(fill + i * 13);
  return b;
}

std::vector<std::uint8_t> Deflate(const std::vector<std::uint8_t>& plain) {
  uLongf size = compressBound(plain.size());
  std::vector<std::uint8_t> out(size);
  compress2(out.data(), &size, plain.data(), plain.size(), Z_DEFAULT_COMPRESSION);
  out.resize(size);
  return out;
}

void PutLE(std::vector<std::uint8_t>& b, std::size_t at, std::uint64_t v, int width) {
  if (b.size() < at + width) b.resize(at + width, 0);
  for (int i = 0; i < width; ++i) b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// An index block of a data tree: type 1, level, count, total size, child ids.
std::vector<std::uint8_t> IndexBlock(bool ansi, std::uint8_t level,
                                     const std::vector<std::uint64_t>& ids, std::uint32_t total) {
  const int width = ansi ? 4 : 8;
  std::vector<std::uint8_t> b(8 + width * ids.size(), 0);
  b[0] = 1;
  b[1] = level;
  PutLE(b, 2, ids.size(), 2);
  PutLE(b, 4, total, 4);
  for (std::size_t i = 0; i < ids.size(); ++i) PutLE(b, 8 + width * i, ids[i], width);
  return b;
}

// A leaf subnode block: type 2, level 0, count, then NodeId, data and subnode blocks.
std::vector<std::uint8_t> SubnodeBlock(bool ansi, const std::vector<NodeRow>& rows) {
  const int width = ansi ? 4 : 8;
  const std::size_t header = ansi ? 4 : 8;
  std::vector<std::uint8_t> b(header + 3 * width * rows.size(), 0);
  b[0] = 2;
  b[1] = 0;
  PutLE(b, 2, rows.size(), 2);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::size_t at = header + 3 * width * i;
    PutLE(b, at, rows[i].nodeId, width);
    PutLE(b, at + width, rows[i].dataBlock, width);
    PutLE(b, at + 2 * width, rows[i].subnodeBlock, width);
  }
  return b;
}

std::vector<std::uint8_t> Build(const Seed& seed) {
  StoreBuilder b(seed.form, 0x4000);
  const bool ansi = b.Ansi();
  const bool large = seed.form == Form::Unicode4096;
  const std::uint64_t page = b.PageSize();
  const std::uint64_t pages = large ? 0x8000 : 0x4400;
  const std::uint64_t nodeBranch = pages, nodeLeaf1 = pages + page, nodeLeaf2 = pages + 2 * page;
  const std::uint64_t blockBranch = pages + 3 * page, blockLeaf1 = pages + 4 * page,
                      blockLeaf2 = pages + 5 * page;
  std::uint64_t next = pages + 6 * page;

  std::vector<BlockRow> blockRows;
  // Data blocks are stored encoded (or compressed in the large form);
  // index and subnode blocks never are.
  auto addData = [&](std::uint64_t id, std::vector<std::uint8_t> bytes) {
    if (seed.crypt != 0) {
      marrow::DecodeBlock(bytes.data(), bytes.size(), id, false, seed.crypt);
    } else if (large && bytes.size() > 64) {
      std::vector<std::uint8_t> packed = Deflate(bytes);
      if (packed.size() < bytes.size()) bytes = std::move(packed);
    }
    b.Put(next, bytes);
    blockRows.push_back({id, next, static_cast<std::uint16_t>(bytes.size())});
    next += (bytes.size() + 63) / 64 * 64;
  };
  auto addInternal = [&](std::uint64_t id, const std::vector<std::uint8_t>& bytes) {
    b.Put(next, bytes);
    blockRows.push_back({id, next, static_cast<std::uint16_t>(bytes.size())});
    next += (bytes.size() + 63) / 64 * 64;
  };

  addData(kStoreProps, Heap(0x21, 160));
  addData(kNameMap, Heap(0x61, 200));
  addData(kRootHeap, Heap(0x22, 120));
  // The inbox heap spans two blocks: the first carries the heap signature,
  // the second continues it.
  addData(kInboxHeap, Heap(0x80, 300));
  std::vector<std::uint8_t> part2(180, 0x5A);
  part2[0] = 0x10;
  addData(kHeapPart2, part2);
  addData(kMessageHeap, Heap(0x44, 400));
  addData(kAttachData1, std::vector<std::uint8_t>(700, 'a'));
  addData(kAttachData2, std::vector<std::uint8_t>(90, 'b'));
  addData(kPlainBlock, {'p', 'l', 'a', 'i', 'n'});

  addInternal(kInboxIndex, IndexBlock(ansi, 1, {kInboxHeap, kHeapPart2}, 480));
  if (seed.looped) {
    // A level-2 tree that names itself, and a heap index naming itself.
    addInternal(kAttachTree, IndexBlock(ansi, 2, {kAttachTree, kInboxIndex, kAttachTree}, 790));
  } else {
    addInternal(kAttachTree, IndexBlock(ansi, 1, {kAttachData1, kAttachData2}, 790));
  }
  addInternal(kNameMapSubnodes,
              SubnodeBlock(ansi, {{0x1F, kPlainBlock, 0, 0}, {0x3F, kAttachTree, 0, 0}}));
  addInternal(kMessageSubnodes, SubnodeBlock(ansi, {{0x671, kMessageHeap, kNameMapSubnodes, 0},
                                                    {0x692, kAttachTree, 0, 0},
                                                    {0x8025, kPlainBlock, 0, 0}}));

  // Block index: a branch over two leaves, rows sorted by id.
  std::sort(blockRows.begin(), blockRows.end(),
            [](const BlockRow& x, const BlockRow& y) { return x.blockId < y.blockId; });
  const std::size_t half = blockRows.size() / 2;
  std::vector<BlockRow> first(blockRows.begin(), blockRows.begin() + half);
  std::vector<BlockRow> second(blockRows.begin() + half, blockRows.end());
  b.BlockLeaf(blockLeaf1, first);
  b.BlockLeaf(blockLeaf2, second);
  std::vector<BranchRow> blockBranchRows = {{first.front().blockId, blockLeaf1},
                                            {second.front().blockId, blockLeaf2}};
  if (seed.looped) blockBranchRows.push_back({0x7FFFFFF0, blockBranch});
  b.Branch(blockBranch, false, 1, blockBranchRows);

  // Node index: store, name map and folders in one leaf, messages in the other.
  b.NodeLeaf(nodeLeaf1, {{0x21, kStoreProps, 0, 0},
                         {0x61, kNameMap, kNameMapSubnodes, 0},
                         {0x122, kRootHeap, 0, 0x122},
                         {0x8022, kInboxIndex, 0, 0x122},
                         {0x802D, kPlainBlock, 0, 0},
                         {0x8042, kPlainBlock, 0, 0x122}});
  // The message leaf is full. A full 32-bit node leaf runs into the page
  // trailer, and its last row is given up.
  std::vector<NodeRow> messages = {{0x200024, kMessageHeap, kMessageSubnodes, 0x8022},
                                   {0x200044, kMessageHeap, 0, 0x8022},
                                   {0x200064, kAttachTree, kMessageSubnodes, 0x8042},
                                   {0x200084, kPlainBlock, 0, 0x122}};
  const std::size_t leafMax = ansi ? 31 : large ? 126 : 15;
  for (std::uint32_t id = 0x2000A4; messages.size() < leafMax; id += 0x20) {
    messages.push_back({id, kPlainBlock, 0, 0x8042});
  }
  b.NodeLeaf(nodeLeaf2, messages);
  std::vector<BranchRow> nodeBranchRows = {{0x21, nodeLeaf1}, {0x200024, nodeLeaf2}};
  if (seed.looped) nodeBranchRows.push_back({0x300000, nodeBranch});
  b.Branch(nodeBranch, true, 1, nodeBranchRows);

  b.Roots(nodeBranch, blockBranch);
  b.CryptByte(seed.crypt);
  b.Put(next, std::vector<std::uint8_t>(64, 0));
  return b.Bytes();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTPUT_FOLDER\n", argv[0]);
    return 2;
  }
  const std::vector<Seed> seeds = {
      {"synthetic_ansi512_permute.pst", Form::Ansi512, 1, false},
      {"synthetic_ansi512_permute_looped.pst", Form::Ansi512, 1, true},
      {"synthetic_unicode512_cyclic.pst", Form::Unicode512, 2, false},
      {"synthetic_unicode512_cyclic_looped.pst", Form::Unicode512, 2, true},
      {"synthetic_unicode4k_zlib.ost", Form::Unicode4096, 0, false},
      {"synthetic_unicode4k_zlib_looped.ost", Form::Unicode4096, 0, true},
  };
  for (const Seed& seed : seeds) {
    const std::vector<std::uint8_t> bytes = Build(seed);
    const std::string path = std::string(argv[1]) + "/" + seed.name;
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out) {
      std::fprintf(stderr, "cannot write %s\n", path.c_str());
      return 1;
    }
    std::printf("%s: %zu bytes\n", path.c_str(), bytes.size());
  }
  return 0;
}
