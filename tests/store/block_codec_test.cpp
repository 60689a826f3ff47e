#include "store/block_codec.h"

#include <algorithm>
#include <numeric>

#include <gtest/gtest.h>

#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;

Buf Table(int which) {
  auto all = CryptTables();
  return Buf(all.begin() + 256 * which, all.begin() + 256 * (which + 1));
}

TEST(CryptTables, AreThePublishedPermutations) {
  const Buf r = Table(0), s = Table(1), i = Table(2);
  Buf identity(256);
  std::iota(identity.begin(), identity.end(), 0);
  for (Buf t : {r, s, i}) {
    std::sort(t.begin(), t.end());
    EXPECT_EQ(t, identity);
  }
  for (int b = 0; b < 256; ++b) EXPECT_EQ(i[r[b]], b) << "I must undo R";
  // First and last sixteen bytes of R and S as published.
  EXPECT_EQ(Buf(r.begin(), r.begin() + 16),
            (Buf{65, 54, 19, 98, 168, 33, 110, 187, 244, 22, 204, 4, 127, 100, 232, 93}));
  EXPECT_EQ(Buf(r.end() - 16, r.end()), (Buf{162, 1, 247, 46, 188, 36, 104, 117, 13, 254, 186, 47, 181, 208, 218, 61}));
  EXPECT_EQ(Buf(s.begin(), s.begin() + 16),
            (Buf{20, 83, 15, 86, 179, 200, 122, 156, 235, 101, 72, 23, 22, 21, 159, 2}));
  EXPECT_EQ(Buf(s.end() - 16, s.end()),
            (Buf{97, 224, 198, 193, 89, 171, 187, 88, 222, 95, 223, 96, 121, 126, 178, 138}));
}

TEST(DecodeBlock, PermuteAndCyclicCodes) {
  Buf plain(1000);
  for (std::size_t i = 0; i < plain.size(); ++i) plain[i] = static_cast<std::uint8_t>(i * 7 + 3);
  auto code = [&](std::uint64_t key, bool decoding, int method, Buf data) {
    EXPECT_EQ(DecodeBlock(data.data(), data.size(), key, decoding, method), 0);
    return data;
  };
  const Buf permuted = code(0x1234, false, kCryptPermute, plain);
  EXPECT_EQ(permuted[0], Table(0)[3]) << "encoding is R";
  EXPECT_EQ(code(0x1234, true, kCryptPermute, permuted), plain);

  const Buf cyclic = code(0x10004, true, kCryptCyclic, plain);
  EXPECT_NE(cyclic, plain);
  EXPECT_NE(cyclic, code(0x10008, true, kCryptCyclic, plain)) << "the key must change the result";
  EXPECT_EQ(code(0x10004, true, kCryptCyclic, cyclic), plain) << "the cyclic code is its own inverse";
  EXPECT_EQ(code(0xABCD00010004ull, true, kCryptCyclic, plain), cyclic) << "only the low 32 bits are the key";
  // key 0x00030001: w = 0x0001 ^ 0x0003 = 2; b = I[S[R[(b + 2) & 255]]] - 2.
  const Buf r = Table(0), s = Table(1), i = Table(2);
  EXPECT_EQ(code(0x00030001, true, kCryptCyclic, {0x41})[0], static_cast<std::uint8_t>(i[s[r[0x43]]] - 2));

  Buf data = {1, 2, 3};
  EXPECT_EQ(DecodeBlock(nullptr, 3, 1, true, kCryptPermute), -1);
  EXPECT_EQ(DecodeBlock(data.data(), 3, 1, true, kCryptNone), -1);
  EXPECT_EQ(DecodeBlock(data.data(), 3, 1, true, 7), -1);
  EXPECT_EQ(data, (Buf{1, 2, 3}));
}

TEST(BlockCodec, RealBlocksDecodeAndInflateToHeaps) {
  MARROW_REQUIRE_TESTDATA();
  for (const char* name : {"fragments/libpff/data_block.1", "fragments/libpff/data_block.2"}) {
    Buf data = test::ReadFile<test::Buf>(test::Sample(name));
    ASSERT_GT(data.size(), 3u) << name;
    DecodeBlock(data.data(), data.size(), 0, true, kCryptPermute);
    EXPECT_EQ(data[2], 0xEC) << name;
  }
  const Buf packed = test::ReadFile<test::Buf>(test::Sample("fragments/libpff/data_block.3"));
  ASSERT_TRUE(LooksDeflated(packed));
  const Buf out = InflateBuffer(packed);
  EXPECT_EQ(out.size(), 11866u) << "the block's padding and trailer after the stream are ignored";
  EXPECT_EQ(out[2], 0xEC);
}

TEST(InflateBuffer, LongBrokenAndBoundedStreams) {
  Buf plain(100000);
  for (std::size_t i = 0; i < plain.size(); ++i) plain[i] = static_cast<std::uint8_t>((i * 131) >> 3);
  const Buf packed = test::Deflated(plain);
  EXPECT_EQ(InflateBuffer(packed), plain) << "a long stream crosses input and output pieces";

  const Buf half = InflateBuffer(Buf(packed.begin(), packed.begin() + packed.size() / 2));
  EXPECT_LT(half.size(), plain.size());
  EXPECT_TRUE(std::equal(half.begin(), half.end(), plain.begin())) << "a cut stream gives a prefix, not garbage";
  EXPECT_TRUE(InflateBuffer(Buf{0x78, 0x9C, 0xFF, 0xFF, 0xFF}).empty());
  EXPECT_TRUE(InflateBuffer({}).empty());

  const Buf bomb = test::Deflated(Buf(8u << 20, 0));
  EXPECT_LT(bomb.size(), 64u * 1024);
  EXPECT_EQ(InflateBuffer(bomb).size(), kMaxInflatedSize);
  EXPECT_EQ(InflateBuffer(bomb, 1000).size(), 1000u);
}

}  // namespace
}  // namespace marrow
