// Block reading: the encoding vote, normalisation and joins, data trees, subnodes.
#include <filesystem>

#include <gtest/gtest.h>

#include "store/block_codec.h"
#include "store/store_reader.h"
#include "tests/support/heap_builder.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;
using test::BlockStore;
using test::Cat;
using test::Form;
using test::IndexBlock;
using test::SubnodeBlock;

Buf Heap(std::size_t size, std::uint8_t fill) {
  Buf h(size, fill);
  h[0] = 0x10;
  h[1] = 0x00;
  h[2] = 0xEC;
  h[3] = 0xBC;
  return h;
}

Buf Encoded(Buf data, std::uint64_t key, int method) {
  DecodeBlock(data.data(), data.size(), key, false, method);
  return data;
}

Buf Tree(StoreReader& r, std::uint64_t id, std::size_t limit = SIZE_MAX) {
  MemorySink sink(limit);
  r.ReadDataTreeInto(id, sink);
  return sink.Data();
}

TEST(Vote, StrictMajorityElseTheFallbackOrTheLatest) {
  StoreReader r;
  r.SetVotes({.none = 3, .permute = 3});
  r.UpdateCryptMethod(1);
  EXPECT_EQ(r.CryptMethod(), 1) << "a tie takes the fallback";
  Buf plain = Heap(64, 1);
  r.NormalizeBlock(plain, 0x40, nullptr);
  EXPECT_EQ(r.CryptMethod(), kCryptNone);

  // A cyclic block while none and permute are level: nobody leads, so the method just seen wins.
  StoreReader t;
  t.SetVotes({.none = 3, .permute = 3});
  Buf cyclic = Encoded(Heap(64, 2), 0x44, kCryptCyclic);
  t.NormalizeBlock(cyclic, 0x44, nullptr);
  EXPECT_EQ(t.CryptMethod(), kCryptCyclic);

  // Neither plain, permuted nor cyclic gives 0xEC at offset 2: no vote, no change.
  StoreReader u;
  Buf junk = {0x00, 0x11, 0x22, 0x33, 0x44};
  Buf permuted = junk, decoded = junk;
  DecodeBlock(permuted.data(), permuted.size(), 0x40, true, kCryptPermute);
  DecodeBlock(decoded.data(), decoded.size(), 0x40, true, kCryptCyclic);
  ASSERT_NE(permuted[2], 0xEC);
  ASSERT_NE(decoded[2], 0xEC);
  u.NormalizeBlock(junk, 0x40, nullptr);
  EXPECT_EQ(junk, (Buf{0x00, 0x11, 0x22, 0x33, 0x44}));
  Buf tiny = {0xEC};
  u.NormalizeBlock(tiny, 0x40, nullptr);
  const CryptVotes& votes = u.Votes();
  EXPECT_EQ(votes.none + votes.permute + votes.cyclic, 0) << "under two bytes nothing is tried";
}

TEST(Normalize, IndexBlockJoinsItsChildrenAndClosesGaps) {
  const test::TempFolder dir("join");
  const Buf heap = Encoded(Heap(1000, 0x61), 0x200, kCryptPermute);
  BlockStore s;
  s.Add(0x100, Buf(heap.begin(), heap.begin() + 600));
  s.Add(0x108, Buf(heap.begin() + 600, heap.end()));
  auto r = s.Open(dir.Dir().string());
  Buf index = IndexBlock(true, 1, {0x100, 0x999, 0x108});
  std::vector<HeapSegment> segments;
  r->NormalizeBlock(index, 0x200, &segments);
  EXPECT_EQ(index, Heap(1000, 0x61));
  ASSERT_EQ(segments.size(), 2u);
  EXPECT_EQ(segments[0].start, 0u);
  EXPECT_EQ(segments[0].length, 600u);
  EXPECT_EQ(segments[1].start, 600u);
  EXPECT_EQ(segments[1].length, 400u);
  EXPECT_EQ(r->Votes().permute, 1) << "the join votes once";
  EXPECT_TRUE(std::filesystem::is_empty(dir.Dir())) << "the scratch file is removed";
}

TEST(Normalize, OversizedSelfReferencingAndFolderlessJoins) {
  BlockStore s;
  Buf big(0xF000, 0x42);
  big[2] = 0xEC;
  s.Add(0x100, big);
  s.Add(0x104, Buf(0x2000, 0x43));
  s.Add(0x108, Heap(100, 1));
  s.Add(0x102, IndexBlock(true, 2, {0x102, 0x102}));
  auto r = s.Open("/nonexistent/folder");

  const Buf tooLarge = IndexBlock(true, 1, {0x100, 0x104});
  Buf index = tooLarge;
  r->NormalizeBlock(index, 0x300, nullptr);
  EXPECT_EQ(index, tooLarge) << "a join larger than a block is dropped";

  index = IndexBlock(true, 1, {0x108});
  r->NormalizeBlock(index, 0x300, nullptr);
  EXPECT_EQ(index, Heap(100, 1)) << "without a scratch folder the join is kept in memory";

  index = IndexBlock(true, 2, {0x102});
  r->NormalizeBlock(index, 0x102, nullptr);
  EXPECT_LE(index.size(), kMaxBlockSize) << "a self-referencing index block ends";
}

TEST(ReadBlockInto, FollowsTheVerdict) {
  BlockStore s;
  s.Add(0x40, Encoded(Heap(50, 9), 0x40, kCryptPermute));
  const Buf packed = test::Deflated(Heap(5000, 3));
  s.Add(0x44, packed);
  s.Add(0x48, {});
  auto r = s.Open();
  auto read = [&](std::uint64_t id) {
    MemorySink out;
    r->ReadBlockInto(id, out);
    return out.Data();
  };
  r->UpdateCryptMethod(kCryptPermute);
  EXPECT_EQ(read(0x41), Heap(50, 9)) << "decoded, with bit zero of the id cleared";
  r->UpdateCryptMethod(kCryptNone);
  EXPECT_EQ(read(0x44), Heap(5000, 3)) << "inflated while the verdict is none";
  r->UpdateCryptMethod(7);
  EXPECT_EQ(read(0x44), packed) << "an unknown method leaves blocks as stored";
  // A zero-length row must not make the reader copy into an empty buffer.
  EXPECT_TRUE(read(0x48).empty());
  EXPECT_TRUE(Tree(*r, 0x48).empty());
}

TEST(ReadDataTree, ConcatenatesChildrenInOrderAtBothLevels) {
  for (Form form : {Form::Ansi512, Form::Unicode512, Form::Unicode4096}) {
    const bool wide = form != Form::Ansi512;
    BlockStore s(form);
    s.Add(0x40, Buf(300, 'a'));
    s.Add(0x44, Buf(200, 'b'));
    s.Add(0x48, Buf(100, 'c'));
    s.Add(0x102, IndexBlock(wide, 1, {0x40, 0x44}));
    s.Add(0x106, IndexBlock(wide, 1, {0x48}));
    s.Add(0x10A, IndexBlock(wide, 2, {0x102, 0x106}));
    auto r = s.Open();
    EXPECT_EQ(Tree(*r, 0x102), Cat({Buf(300, 'a'), Buf(200, 'b')}));
    EXPECT_EQ(Tree(*r, 0x10A), Cat({Buf(300, 'a'), Buf(200, 'b'), Buf(100, 'c')}));
    EXPECT_EQ(Tree(*r, 0x48), Buf(100, 'c')) << "a plain block is its own tree";
  }
}

TEST(ReadDataTree, HostileTreesEnd) {
  BlockStore s;
  s.Add(0x40, Buf(0x1000, 'x'));
  s.Add(0x44, Buf(10, 'a'));
  s.Add(0x48, Buf(10, 'b'));
  s.Add(0x102, IndexBlock(true, 2, {0x102, 0x106}));
  s.Add(0x106, IndexBlock(true, 1, std::vector<std::uint64_t>(1000, 0x40)));
  s.Add(0x10A, IndexBlock(true, 2, std::vector<std::uint64_t>(2000, 0x106)));
  // Count 1000 but two ids: the walk stops at the block's end; ids past it read as no block.
  s.Add(0x10E, IndexBlock(true, 1, {0x44, 0x48}, 0, 1000));
  const Buf index = IndexBlock(true, 1, {0x44});
  s.Add(0x112, test::Deflated(index));
  auto r = s.Open();
  EXPECT_EQ(Tree(*r, 0x102).size(), 1000u * 0x1000) << "the inner tree is read once";
  EXPECT_EQ(Tree(*r, 0x10A).size(), 1000u * 0x1000) << "a repeated index block is expanded once";
  EXPECT_EQ(Tree(*r, 0x106, 5000).size(), 5000u) << "the sink's limit holds";
  EXPECT_EQ(Tree(*r, 0x10E), Cat({Buf(10, 'a'), Buf(10, 'b')}));
  EXPECT_EQ(Tree(*r, 0x112), Cat({Buf(10, 'a'), index})) << "a compressed index block is followed by its own bytes";
}

TEST(Subnodes, LeafAndIntermediateRowsInBothForms) {
  for (Form form : {Form::Ansi512, Form::Unicode512}) {
    const bool wide = form != Form::Ansi512;
    BlockStore s(form);
    s.Add(0x80, SubnodeBlock(wide, 0, {{0x692, 0x40, 0x0, 0}, {0x671, 0x44, 0x91, 0}}));
    s.Add(0x84, SubnodeBlock(wide, 1, {{0x692, 0x80, 0, 0}}));
    s.Add(0x88, Buf{1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    Buf twoClaimed = SubnodeBlock(wide, 0, {{0x692, 0x40, 0, 0}});
    twoClaimed[2] = 2;
    s.Add(0x8C, twoClaimed);
    auto r = s.Open();
    auto list = [&](std::uint64_t id) {
      SubnodeLists lists;
      r->ReadSubnodeList(id, lists);
      return lists;
    };
    const SubnodeLists leaf = list(0x80);
    ASSERT_EQ(leaf.size(), 2u);
    EXPECT_EQ(leaf[1].nodeId, 0x671u);
    EXPECT_EQ(leaf[1].dataBlock, 0x44u);
    EXPECT_EQ(leaf[1].subnodeBlock, 0x91u);
    const SubnodeLists upper = list(0x84);
    ASSERT_EQ(upper.size(), 1u);
    EXPECT_EQ(upper[0].dataBlock, 0x80u) << "the lower list is not followed";
    EXPECT_EQ(upper[0].subnodeBlock, 0u);
    EXPECT_TRUE(list(0x88).empty()) << "first byte 1 is no subnode block";
    EXPECT_TRUE(list(0x8C).empty()) << "rows that do not fit give nothing";
  }
  // Real writers leave junk in the padding of the 8-byte NodeId field.
  BlockStore s;
  s.Add(0x80, SubnodeBlock(true, 0, {{0x8025, 0x40, 0, 0}}));
  s.Builder().Put(0x8008, {0x25, 0x80, 0, 0, 0x69, 0, 0x66, 0});
  SubnodeLists lists;
  s.Open()->ReadSubnodeList(0x80, lists);
  ASSERT_EQ(lists.size(), 1u);
  EXPECT_EQ(lists[0].nodeId, 0x8025u);
}

TEST(Subnodes, ReadIntoTakesTheFirstMatchingRow) {
  BlockStore s;
  s.Add(0x40, Buf(20, 'p'));
  s.Add(0x44, Buf(20, 'q'));
  s.Add(0x48, Buf(5, 'r'));
  s.Add(0x102, IndexBlock(true, 1, {0x44, 0x48}));
  auto r = s.Open();
  r->UpdateCryptMethod(kCryptNone);
  const SubnodeLists lists = {{0x692, 0x41, 0x93}, {0x692, 0x44, 0}, {0x671, 0x103, 0}};
  auto read = [&](std::uint64_t id, std::uint64_t& child) {
    MemorySink out;
    r->ReadSubnodeInto(id, lists, out, child);
    return out.Data();
  };
  std::uint64_t child = 0;
  EXPECT_EQ(read(0x692, child), Buf(20, 'p'));
  EXPECT_EQ(child, 0x92u);
  EXPECT_EQ(read(0x671, child), Cat({Buf(20, 'q'), Buf(5, 'r')}));
  child = 77;
  EXPECT_TRUE(read(0x999, child).empty());
  EXPECT_EQ(child, 77u);
}

}  // namespace
}  // namespace marrow
