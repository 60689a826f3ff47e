// Block reading: the encoding vote, normalisation and joins, data trees, subnodes.
#include <filesystem>

#include <gtest/gtest.h>
#include <zlib.h>

#include "store/block_codec.h"
#include "store/store_reader.h"
#include "tests/support/store_builder.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;
using test::Form;
using test::StoreBuilder;

// A store whose block index is one leaf listing the blocks added to it.
class BlockStore {
 public:
  explicit BlockStore(Form form = Form::Unicode512) : b_(form, 0x20000) {}

  void Add(std::uint64_t id, const Buf& data) {
    b_.Put(next_, data);
    rows_.push_back({id, next_, static_cast<std::uint16_t>(data.size())});
    next_ += (data.size() + 0x3F) & ~std::uint64_t{0x3F};
  }
  std::unique_ptr<StoreReader> Open(const std::string& tempFolder = {}) {
    b_.BlockLeaf(0x4000, rows_);
    b_.Roots(0x4200, 0x4000);
    auto r = std::make_unique<StoreReader>(tempFolder);
    EXPECT_TRUE(r->OpenSource(b_.Source()));
    return r;
  }

 private:
  StoreBuilder b_;
  std::vector<test::BlockRow> rows_;
  std::uint64_t next_ = 0x8000;
};

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

Buf Deflated(const Buf& plain) {
  uLongf n = compressBound(plain.size());
  Buf out(n);
  compress2(out.data(), &n, plain.data(), plain.size(), Z_DEFAULT_COMPRESSION);  // header 78 9C
  out.resize(n);
  return out;
}

Buf IndexBlock(std::uint8_t level, const std::vector<std::uint64_t>& ids, bool wide, int count = -1) {
  Buf out(8, 0);
  out[0] = 1;
  out[1] = level;
  const std::uint16_t n = count >= 0 ? count : ids.size();
  out[2] = n & 0xFF;
  out[3] = n >> 8;
  for (std::uint64_t id : ids)
    for (int i = 0; i < (wide ? 8 : 4); ++i) out.push_back(static_cast<std::uint8_t>(id >> (8 * i)));
  return out;
}

Buf Tree(StoreReader& r, std::uint64_t id) {
  MemorySink sink;
  r.ReadDataTreeInto(id, sink);
  return sink.Data();
}

TEST(Vote, PlainHeapCountsForNone) {
  StoreReader r;
  auto block = Heap(100, 7);
  const auto before = block;
  r.NormalizeBlock(block, 0x40, nullptr);
  EXPECT_EQ(block, before);
  EXPECT_EQ(r.noneVotes, 1);
  EXPECT_EQ(r.CryptMethod(), kCryptNone);
}

TEST(Vote, StrictMajorityOrFallback) {
  StoreReader r;
  r.noneVotes = 3;
  r.permuteVotes = 3;
  r.UpdateCryptMethod(1);
  EXPECT_EQ(r.CryptMethod(), 1) << "a tie takes the fallback";
  auto plain = Heap(64, 1);
  r.NormalizeBlock(plain, 0x40, nullptr);
  EXPECT_EQ(r.noneVotes, 4);
  EXPECT_EQ(r.CryptMethod(), kCryptNone);

  // A cyclic block while none and permute are level: nobody leads, so the
  // method just seen wins.
  StoreReader t;
  t.noneVotes = 3;
  t.permuteVotes = 3;
  auto cyclic = Encoded(Heap(64, 2), 0x44, kCryptCyclic);
  t.NormalizeBlock(cyclic, 0x44, nullptr);
  EXPECT_EQ(t.cyclicVotes, 1);
  EXPECT_EQ(t.CryptMethod(), kCryptCyclic);
  EXPECT_EQ(cyclic, Heap(64, 2));
}

TEST(Vote, EncodedHeapsAreDecodedInPlace) {
  for (int method : {kCryptPermute, kCryptCyclic}) {
    StoreReader r;
    auto block = Encoded(Heap(500, 0x33), 0x1234, method);
    r.NormalizeBlock(block, 0x1234, nullptr);
    EXPECT_EQ(block, Heap(500, 0x33)) << "method " << method;
    EXPECT_EQ(method == kCryptPermute ? r.permuteVotes : r.cyclicVotes, 1);
    EXPECT_EQ(r.CryptMethod(), method);
  }
}

TEST(Vote, CompressedHeapIsInflatedAndCountsForNone) {
  StoreReader r;
  auto block = Deflated(Heap(3000, 0x55));
  r.NormalizeBlock(block, 0x40, nullptr);
  EXPECT_EQ(block, Heap(3000, 0x55));
  EXPECT_EQ(r.noneVotes, 1);
}

TEST(Vote, BytesThatAreNoHeapStayAsTheyCame) {
  StoreReader r;
  Buf junk = {0x00, 0x11, 0x22, 0x33, 0x44};
  // Neither plain, permuted nor cyclic gives 0xEC at offset 2.
  Buf permuted = junk, cyclic = junk;
  DecodeBlock(permuted.data(), permuted.size(), 0x40, true, kCryptPermute);
  DecodeBlock(cyclic.data(), cyclic.size(), 0x40, true, kCryptCyclic);
  ASSERT_NE(permuted[2], 0xEC);
  ASSERT_NE(cyclic[2], 0xEC);
  r.NormalizeBlock(junk, 0x40, nullptr);
  EXPECT_EQ(junk, (Buf{0x00, 0x11, 0x22, 0x33, 0x44}));
  EXPECT_EQ(r.noneVotes + r.permuteVotes + r.cyclicVotes, 0);
  Buf tiny = {0xEC};
  r.NormalizeBlock(tiny, 0x40, nullptr);
  EXPECT_EQ(r.noneVotes, 0) << "under two bytes nothing is tried";
}

TEST(Normalize, IndexBlockJoinsItsChildrenAndClosesGaps) {
  const auto dir = std::filesystem::temp_directory_path() / ("marrow-join-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  auto heap = Encoded(Heap(1000, 0x61), 0x200, kCryptPermute);
  Buf part1(heap.begin(), heap.begin() + 600), part2(heap.begin() + 600, heap.end());
  BlockStore s;
  s.Add(0x100, part1);
  s.Add(0x108, part2);
  auto r = s.Open(dir.string());
  auto index = IndexBlock(1, {0x100, 0x999, 0x108}, true);
  std::vector<HeapSegment> segments;
  r->NormalizeBlock(index, 0x200, &segments);
  EXPECT_EQ(index, Heap(1000, 0x61));
  ASSERT_EQ(segments.size(), 2u);
  EXPECT_EQ(segments[0].start, 0u);
  EXPECT_EQ(segments[0].length, 600u);
  EXPECT_EQ(segments[1].start, 600u);
  EXPECT_EQ(segments[1].length, 400u);
  EXPECT_EQ(r->permuteVotes, 1) << "the join votes once";
  EXPECT_TRUE(std::filesystem::is_empty(dir)) << "the scratch file is removed";
  std::filesystem::remove_all(dir);
}

TEST(Normalize, JoinLargerThanABlockIsDropped) {
  BlockStore s;
  Buf big(0xF000, 0x42);
  big[2] = 0xEC;
  s.Add(0x100, big);
  s.Add(0x104, Buf(0x2000, 0x43));
  auto r = s.Open();
  auto index = IndexBlock(1, {0x100, 0x104}, true);
  const auto before = index;
  r->NormalizeBlock(index, 0x300, nullptr);
  EXPECT_EQ(index, before);
}

TEST(Normalize, JoinWorksWithoutAScratchFolder) {
  BlockStore s;
  s.Add(0x100, Heap(100, 1));
  auto r = s.Open("/nonexistent/folder");
  auto index = IndexBlock(1, {0x100}, true);
  r->NormalizeBlock(index, 0x300, nullptr);
  EXPECT_EQ(index, Heap(100, 1));
}

TEST(Normalize, SelfReferencingIndexBlockEnds) {
  BlockStore s;
  s.Add(0x102, IndexBlock(2, {0x102, 0x102}, true));
  auto r = s.Open();
  auto index = IndexBlock(2, {0x102}, true);
  r->NormalizeBlock(index, 0x102, nullptr);  // must return
  SUCCEED();
}

TEST(ReadBlockInto, DecodesWithTheVerdictAndClearsBitZero) {
  BlockStore s;
  s.Add(0x40, Encoded(Heap(50, 9), 0x40, kCryptPermute));
  auto r = s.Open();
  r->UpdateCryptMethod(kCryptPermute);
  MemorySink out;
  r->ReadBlockInto(0x41, out);
  EXPECT_EQ(out.Data(), Heap(50, 9));
}

TEST(ReadBlockInto, InflatesOnlyWhileTheVerdictIsNone) {
  BlockStore s;
  auto packed = Deflated(Heap(5000, 3));
  s.Add(0x40, packed);
  auto r = s.Open();
  r->UpdateCryptMethod(kCryptNone);
  MemorySink plain;
  r->ReadBlockInto(0x40, plain);
  EXPECT_EQ(plain.Data(), Heap(5000, 3));
  r->UpdateCryptMethod(7);  // an unknown header byte: blocks stay as stored
  MemorySink raw;
  r->ReadBlockInto(0x40, raw);
  EXPECT_EQ(raw.Data(), packed);
}

TEST(ReadDataTree, ConcatenatesChildrenInOrderAtBothLevels) {
  for (Form form : {Form::Ansi512, Form::Unicode512, Form::Unicode4096}) {
    const bool wide = form != Form::Ansi512;
    BlockStore s(form);
    s.Add(0x40, Buf(300, 'a'));
    s.Add(0x44, Buf(200, 'b'));
    s.Add(0x48, Buf(100, 'c'));
    s.Add(0x102, IndexBlock(1, {0x40, 0x44}, wide));
    s.Add(0x106, IndexBlock(1, {0x48}, wide));
    s.Add(0x10A, IndexBlock(2, {0x102, 0x106}, wide));
    auto r = s.Open();
    Buf want = Buf(300, 'a');
    want.insert(want.end(), 200, 'b');
    EXPECT_EQ(Tree(*r, 0x102), want);
    want.insert(want.end(), 100, 'c');
    EXPECT_EQ(Tree(*r, 0x10A), want);
    EXPECT_EQ(Tree(*r, 0x48), Buf(100, 'c')) << "a plain block is its own tree";
  }
}

TEST(ReadDataTree, CountBeyondTheBlockStopsAtItsEnd) {
  BlockStore s;
  s.Add(0x40, Buf(10, 'a'));
  s.Add(0x44, Buf(10, 'b'));
  // Count 1000 but two ids: the 64-bit walk stops where 8 + 4 x i passes the size,
  // and ids past the block read as zero (no such block).
  s.Add(0x102, IndexBlock(1, {0x40, 0x44}, true, 1000));
  auto r = s.Open();
  Buf want(10, 'a');
  want.insert(want.end(), 10, 'b');
  EXPECT_EQ(Tree(*r, 0x102), want);
}

TEST(ReadDataTree, LoopsAndHugeFanOutEnd) {
  BlockStore s;
  s.Add(0x40, Buf(0x1000, 'x'));
  std::vector<std::uint64_t> many(2000, 0x106);
  s.Add(0x102, IndexBlock(2, {0x102, 0x106}, true));
  s.Add(0x106, IndexBlock(1, std::vector<std::uint64_t>(1000, 0x40), true));
  s.Add(0x10A, IndexBlock(2, many, true));
  auto r = s.Open();
  EXPECT_EQ(Tree(*r, 0x102).size(), 1000u * 0x1000) << "the inner tree is read once";
  EXPECT_EQ(Tree(*r, 0x10A).size(), 1000u * 0x1000) << "a repeated index block is expanded once";
  MemorySink limited(5000);
  r->ReadDataTreeInto(0x106, limited);
  EXPECT_EQ(limited.Data().size(), 5000u);
}

TEST(ReadDataTree, CompressedIndexBlockIsFollowedByItsOwnBytes) {
  BlockStore s;
  s.Add(0x40, Buf(30, 'a'));
  auto index = IndexBlock(1, {0x40}, true);
  s.Add(0x102, Deflated(index));
  auto r = s.Open();
  Buf want(30 + index.size(), 'a');
  std::copy(index.begin(), index.end(), want.begin() + 30);
  EXPECT_EQ(Tree(*r, 0x102), want);
}

Buf SubnodeBlock(std::uint8_t level, const std::vector<std::vector<std::uint64_t>>& rows, bool wide) {
  Buf out(wide ? 8 : 4, 0);
  out[0] = 2;
  out[1] = level;
  out[2] = static_cast<std::uint8_t>(rows.size());
  for (const auto& row : rows)
    for (std::uint64_t v : row)
      for (int i = 0; i < (wide ? 8 : 4); ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
  return out;
}

TEST(Subnodes, LeafAndIntermediateRowsInBothForms) {
  for (Form form : {Form::Ansi512, Form::Unicode512}) {
    const bool wide = form != Form::Ansi512;
    BlockStore s(form);
    s.Add(0x80, SubnodeBlock(0, {{0x692, 0x40, 0x0}, {0x671, 0x44, 0x91}}, wide));
    s.Add(0x84, SubnodeBlock(1, {{0x692, 0x80}}, wide));
    s.Add(0x88, Buf{1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    auto r = s.Open();
    SubnodeLists lists;
    r->ReadSubnodeList(0x80, lists);
    ASSERT_EQ(lists.size(), 2u);
    EXPECT_EQ(lists[1].nodeId, 0x671u);
    EXPECT_EQ(lists[1].dataBlock, 0x44u);
    EXPECT_EQ(lists[1].subnodeBlock, 0x91u);
    SubnodeLists upper;
    r->ReadSubnodeList(0x84, upper);
    ASSERT_EQ(upper.size(), 1u);
    EXPECT_EQ(upper[0].dataBlock, 0x80u) << "the lower list is not followed";
    EXPECT_EQ(upper[0].subnodeBlock, 0u);
    SubnodeLists none;
    r->ReadSubnodeList(0x88, none);
    EXPECT_TRUE(none.empty()) << "first byte 1 is no subnode block";
  }
}

TEST(Subnodes, RowsThatDoNotFitGiveNothing) {
  BlockStore s;
  auto block = SubnodeBlock(0, {{0x692, 0x40, 0}}, true);
  block[2] = 2;  // claims two rows, holds one
  s.Add(0x80, block);
  auto r = s.Open();
  SubnodeLists lists;
  r->ReadSubnodeList(0x80, lists);
  EXPECT_TRUE(lists.empty());
}

TEST(Subnodes, IdZeroCostsNoRead) {
  class CountingSource : public ByteSource {
   public:
    int reads = 0;
    std::uint64_t Size() const override { return 0x10000; }
    std::size_t ReadAt(std::uint64_t, std::span<std::uint8_t>) override {
      ++reads;
      return 0;
    }
  };
  StoreReader r;
  auto source = std::make_unique<CountingSource>();
  CountingSource* counter = source.get();
  r.OpenSource(std::move(source));
  const int afterOpen = counter->reads;
  SubnodeLists lists;
  r.ReadSubnodeList(0, lists);
  EXPECT_EQ(counter->reads, afterOpen);
}

TEST(Subnodes, ReadIntoTakesTheFirstMatchingRow) {
  BlockStore s;
  s.Add(0x40, Buf(20, 'p'));
  s.Add(0x44, Buf(20, 'q'));
  s.Add(0x48, Buf(5, 'r'));
  s.Add(0x102, IndexBlock(1, {0x44, 0x48}, true));
  auto r = s.Open();
  r->UpdateCryptMethod(kCryptNone);
  SubnodeLists lists = {{0x692, 0x41, 0x93}, {0x692, 0x44, 0}, {0x671, 0x103, 0}};
  MemorySink out;
  std::uint64_t child = 0;
  r->ReadSubnodeInto(0x692, lists, out, child);
  EXPECT_EQ(out.Data(), Buf(20, 'p'));
  EXPECT_EQ(child, 0x92u);
  MemorySink tree;
  r->ReadSubnodeInto(0x671, lists, tree, child);
  Buf want(20, 'q');
  want.insert(want.end(), 5, 'r');
  EXPECT_EQ(tree.Data(), want);
  MemorySink missing;
  child = 77;
  r->ReadSubnodeInto(0x999, lists, missing, child);
  EXPECT_TRUE(missing.Data().empty());
  EXPECT_EQ(child, 77u);
}

}  // namespace
}  // namespace marrow

namespace marrow {
namespace {

TEST(ReadDataTree, EmptyBlockGivesNothing) {
  // A zero-length row must not make the reader copy into an empty buffer.
  test::StoreBuilder b(test::Form::Unicode512);
  b.BlockLeaf(0x4000, {{0x40, 0x8000, 0}});
  b.Roots(0x4200, 0x4000);
  StoreReader r;
  ASSERT_TRUE(r.OpenSource(b.Source()));
  MemorySink out;
  r.ReadDataTreeInto(0x40, out);
  r.ReadBlockInto(0x40, out);
  EXPECT_TRUE(out.Data().empty());
  EXPECT_TRUE(r.ReadAt(0x8000, 0).empty());
}

}  // namespace
}  // namespace marrow

namespace marrow {
namespace {

TEST(Subnodes, WideRowsKeepOnlyThe32BitNodeId) {
  // Real writers leave junk in the padding of the 8-byte NodeId field.
  test::StoreBuilder b(test::Form::Unicode512);
  std::vector<std::uint8_t> block = {2, 0, 1, 0, 0, 0, 0, 0};
  for (std::uint64_t v : {0x0066006900008025ull, 0x40ull, 0ull})
    for (int i = 0; i < 8; ++i) block.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
  b.Put(0x8000, block);
  b.BlockLeaf(0x4000, {{0x80, 0x8000, static_cast<std::uint16_t>(block.size())}});
  b.Roots(0x4200, 0x4000);
  StoreReader r;
  ASSERT_TRUE(r.OpenSource(b.Source()));
  SubnodeLists lists;
  r.ReadSubnodeList(0x80, lists);
  ASSERT_EQ(lists.size(), 1u);
  EXPECT_EQ(lists[0].nodeId, 0x8025u);
}

}  // namespace
}  // namespace marrow
