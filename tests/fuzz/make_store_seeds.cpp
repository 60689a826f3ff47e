// Writes the synthetic seeds of the store fuzzer's corpus: one small store
// per form with two-level indexes, folders, messages, a heap over two blocks,
// a data tree and subnode lists, and a damaged twin of each whose pages and
// trees refer back to themselves.
//
//   store_fuzz_seeds OUTPUT_FOLDER
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "store/block_codec.h"
#include "tests/support/store_builder.h"

namespace marrow::test {
namespace {

using Buf = std::vector<std::uint8_t>;

// Block ids: data blocks are multiples of 4, internal blocks (index and
// subnode blocks) have bit 1 set.
constexpr std::uint64_t kStoreProps = 0x100, kNameMap = 0x104, kRootHeap = 0x108, kInboxHeap = 0x10C,
                        kHeapPart2 = 0x110, kMessageHeap = 0x114, kAttachData1 = 0x118, kAttachData2 = 0x11C,
                        kPlainBlock = 0x120;
constexpr std::uint64_t kInboxIndex = 0x202, kNameMapSubnodes = 0x206, kMessageSubnodes = 0x20A, kAttachTree = 0x20E;

struct Seed {
  std::string name;
  Form form;
  std::uint8_t crypt;  // 0 none (and zlib in the large form), 1 permute, 2 cyclic
  bool looped;
};

Buf Heap(std::uint8_t fill, std::size_t size) {
  Buf b(size, fill);
  b[0] = static_cast<std::uint8_t>(size - 8);
  b[1] = static_cast<std::uint8_t>((size - 8) >> 8);
  b[2] = 0xEC;
  b[3] = 0xBC;
  for (std::size_t i = 4; i < size; ++i) b[i] = static_cast<std::uint8_t>(fill + i * 13);
  return b;
}

Buf Build(const Seed& seed) {
  StoreBuilder b(seed.form, 0x4000);
  const bool wide = !b.Ansi();
  const bool large = seed.form == Form::Unicode4096;
  const std::uint64_t page = b.PageSize();
  const std::uint64_t nodeBranch = large ? 0x8000 : 0x4400;
  const std::uint64_t nodeLeaf1 = nodeBranch + page, nodeLeaf2 = nodeBranch + 2 * page;
  const std::uint64_t blockBranch = nodeBranch + 3 * page;
  const std::uint64_t blockLeaf1 = nodeBranch + 4 * page, blockLeaf2 = nodeBranch + 5 * page;
  std::uint64_t next = nodeBranch + 6 * page;

  std::vector<BlockRow> blockRows;
  // Data blocks are stored encoded (or compressed in the large form); index
  // and subnode blocks never are.
  auto add = [&](std::uint64_t id, Buf bytes) {
    if ((id & 2) == 0 && seed.crypt != 0) {
      DecodeBlock(bytes.data(), bytes.size(), id, false, seed.crypt);
    } else if ((id & 2) == 0 && large && bytes.size() > 64) {
      Buf packed = Deflated(bytes);
      if (packed.size() < bytes.size()) bytes = std::move(packed);
    }
    b.Put(next, bytes);
    blockRows.push_back({id, next, static_cast<std::uint16_t>(bytes.size())});
    next += (bytes.size() + 63) / 64 * 64;
  };
  add(kStoreProps, Heap(0x21, 160));
  add(kNameMap, Heap(0x61, 200));
  add(kRootHeap, Heap(0x22, 120));
  // The inbox heap spans two blocks: the first carries the heap signature, the second continues it.
  add(kInboxHeap, Heap(0x80, 300));
  Buf part2(180, 0x5A);
  part2[0] = 0x10;
  add(kHeapPart2, part2);
  add(kMessageHeap, Heap(0x44, 400));
  add(kAttachData1, Buf(700, 'a'));
  add(kAttachData2, Buf(90, 'b'));
  add(kPlainBlock, {'p', 'l', 'a', 'i', 'n'});
  add(kInboxIndex, IndexBlock(wide, 1, {kInboxHeap, kHeapPart2}, 480));
  // The looped twin has a level-2 tree that names itself.
  add(kAttachTree, seed.looped ? IndexBlock(wide, 2, {kAttachTree, kInboxIndex, kAttachTree}, 790)
                               : IndexBlock(wide, 1, {kAttachData1, kAttachData2}, 790));
  add(kNameMapSubnodes, SubnodeBlock(wide, 0, {{0x1F, kPlainBlock, 0, 0}, {0x3F, kAttachTree, 0, 0}}));
  add(kMessageSubnodes,
      SubnodeBlock(
          wide, 0,
          {{0x671, kMessageHeap, kNameMapSubnodes, 0}, {0x692, kAttachTree, 0, 0}, {0x8025, kPlainBlock, 0, 0}}));

  // Block index: a branch over two leaves, rows sorted by id.
  std::sort(blockRows.begin(), blockRows.end(),
            [](const BlockRow& x, const BlockRow& y) { return x.blockId < y.blockId; });
  const std::vector<BlockRow> first(blockRows.begin(), blockRows.begin() + blockRows.size() / 2);
  const std::vector<BlockRow> second(blockRows.begin() + blockRows.size() / 2, blockRows.end());
  b.BlockLeaf(blockLeaf1, first);
  b.BlockLeaf(blockLeaf2, second);
  std::vector<BranchRow> blockBranchRows = {{first.front().blockId, blockLeaf1}, {second.front().blockId, blockLeaf2}};
  if (seed.looped) blockBranchRows.push_back({0x7FFFFFF0, blockBranch});
  b.Branch(blockBranch, false, 1, blockBranchRows);

  // Node index: store, name map and folders in one leaf, messages in the other.
  b.NodeLeaf(nodeLeaf1, {{0x21, kStoreProps, 0, 0},
                         {0x61, kNameMap, kNameMapSubnodes, 0},
                         {0x122, kRootHeap, 0, 0x122},
                         {0x8022, kInboxIndex, 0, 0x122},
                         {0x802D, kPlainBlock, 0, 0},
                         {0x8042, kPlainBlock, 0, 0x122}});
  // The message leaf is full: a full 32-bit node leaf runs into the page trailer and gives up its
  // last row.
  std::vector<NodeRow> messages = {{0x200024, kMessageHeap, kMessageSubnodes, 0x8022},
                                   {0x200044, kMessageHeap, 0, 0x8022},
                                   {0x200064, kAttachTree, kMessageSubnodes, 0x8042},
                                   {0x200084, kPlainBlock, 0, 0x122}};
  for (std::uint32_t id = 0x2000A4; messages.size() < (wide ? large ? 126u : 15u : 31u); id += 0x20) {
    messages.push_back({id, kPlainBlock, 0, 0x8042});
  }
  b.NodeLeaf(nodeLeaf2, messages);
  std::vector<BranchRow> nodeBranchRows = {{0x21, nodeLeaf1}, {0x200024, nodeLeaf2}};
  if (seed.looped) nodeBranchRows.push_back({0x300000, nodeBranch});
  b.Branch(nodeBranch, true, 1, nodeBranchRows);

  b.Roots(nodeBranch, blockBranch);
  b.CryptByte(seed.crypt);
  b.Put(next, Buf(64, 0));
  return b.Bytes();
}

}  // namespace
}  // namespace marrow::test

int main(int argc, char** argv) {
  using marrow::test::Form;
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTPUT_FOLDER\n", argv[0]);
    return 2;
  }
  const marrow::test::Seed seeds[] = {
      {"synthetic_ansi512_permute.pst", Form::Ansi512, 1, false},
      {"synthetic_ansi512_permute_looped.pst", Form::Ansi512, 1, true},
      {"synthetic_unicode512_cyclic.pst", Form::Unicode512, 2, false},
      {"synthetic_unicode512_cyclic_looped.pst", Form::Unicode512, 2, true},
      {"synthetic_unicode4k_zlib.ost", Form::Unicode4096, 0, false},
      {"synthetic_unicode4k_zlib_looped.ost", Form::Unicode4096, 0, true},
  };
  for (const auto& seed : seeds) {
    const std::vector<std::uint8_t> bytes = marrow::test::Build(seed);
    const std::string path = std::string(argv[1]) + "/" + seed.name;
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
      std::fprintf(stderr, "cannot write %s\n", path.c_str());
      return 1;
    }
    std::printf("%s: %zu bytes\n", path.c_str(), bytes.size());
  }
  return 0;
}
