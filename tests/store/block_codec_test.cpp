#include "store/block_codec.h"

#include <algorithm>
#include <numeric>

#include <gtest/gtest.h>
#include <zlib.h>

#include "tests/support/test_data.h"

namespace marrow {
namespace {

std::vector<std::uint8_t> Table(int which) {
  auto all = CryptTables();
  return std::vector<std::uint8_t>(all.begin() + 256 * which, all.begin() + 256 * (which + 1));
}

TEST(CryptTables, AreThePublishedPermutations) {
  const auto r = Table(0), s = Table(1), i = Table(2);
  for (const auto& t : {r, s, i}) {
    auto sorted = t;
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::uint8_t> identity(256);
    std::iota(identity.begin(), identity.end(), 0);
    EXPECT_EQ(sorted, identity);
  }
  for (int b = 0; b < 256; ++b) EXPECT_EQ(i[r[b]], b) << "I must undo R";
  // First and last sixteen bytes of each table as published.
  const std::vector<std::uint8_t> rFirst = {65, 54, 19, 98, 168, 33, 110, 187, 244, 22, 204, 4, 127, 100, 232, 93};
  const std::vector<std::uint8_t> rLast = {162, 1, 247, 46, 188, 36, 104, 117, 13, 254, 186, 47, 181, 208, 218, 61};
  const std::vector<std::uint8_t> sFirst = {20, 83, 15, 86, 179, 200, 122, 156, 235, 101, 72, 23, 22, 21, 159, 2};
  const std::vector<std::uint8_t> sLast = {97, 224, 198, 193, 89, 171, 187, 88, 222, 95, 223, 96, 121, 126, 178, 138};
  EXPECT_EQ(std::vector<std::uint8_t>(r.begin(), r.begin() + 16), rFirst);
  EXPECT_EQ(std::vector<std::uint8_t>(r.end() - 16, r.end()), rLast);
  EXPECT_EQ(std::vector<std::uint8_t>(s.begin(), s.begin() + 16), sFirst);
  EXPECT_EQ(std::vector<std::uint8_t>(s.end() - 16, s.end()), sLast);
}

TEST(DecodeBlock, PermuteEncodesAndDecodes) {
  std::vector<std::uint8_t> data(300);
  std::iota(data.begin(), data.end(), 0);
  const auto plain = data;
  ASSERT_EQ(DecodeBlock(data.data(), data.size(), 0x1234, false, kCryptPermute), 0);
  EXPECT_NE(data, plain);
  EXPECT_EQ(data[0], 65);  // R[0]
  ASSERT_EQ(DecodeBlock(data.data(), data.size(), 0x1234, true, kCryptPermute), 0);
  EXPECT_EQ(data, plain);
}

TEST(DecodeBlock, CyclicIsItsOwnInverseAndKeyed) {
  std::vector<std::uint8_t> data(1000);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 7 + 3);
  const auto plain = data;
  auto other = data;
  DecodeBlock(data.data(), data.size(), 0x10004, true, kCryptCyclic);
  DecodeBlock(other.data(), other.size(), 0x10008, true, kCryptCyclic);
  EXPECT_NE(data, plain);
  EXPECT_NE(data, other) << "the key must change the result";
  DecodeBlock(data.data(), data.size(), 0x10004, true, kCryptCyclic);
  EXPECT_EQ(data, plain);
  // Only the low 32 bits of the id are the key.
  auto high = plain;
  auto low = plain;
  DecodeBlock(high.data(), high.size(), 0xABCD00010004ull, true, kCryptCyclic);
  DecodeBlock(low.data(), low.size(), 0x00010004ull, true, kCryptCyclic);
  EXPECT_EQ(high, low);
}

TEST(DecodeBlock, CyclicFollowsTheFormulaForOneByte) {
  // key 0x00030001: w = 0x0001 ^ 0x0003 = 0x0002; b = I[(S[(R[(b+2)&255] + 0) & 255] - 0) & 255] - 2
  const auto r = Table(0), s = Table(1), i = Table(2);
  std::uint8_t b = 0x41;
  const std::uint8_t expected = static_cast<std::uint8_t>(i[s[r[(0x41 + 2) & 255]]] - 2);
  DecodeBlock(&b, 1, 0x00030001, true, kCryptCyclic);
  EXPECT_EQ(b, expected);
}

TEST(DecodeBlock, RefusesNullAndUnknownMethods) {
  std::vector<std::uint8_t> data = {1, 2, 3};
  EXPECT_EQ(DecodeBlock(nullptr, 3, 1, true, kCryptPermute), -1);
  EXPECT_EQ(DecodeBlock(data.data(), 3, 1, true, 0), -1);
  EXPECT_EQ(DecodeBlock(data.data(), 3, 1, true, 7), -1);
  EXPECT_EQ(data, (std::vector<std::uint8_t>{1, 2, 3}));
}

TEST(DecodeBlock, RealPermutedBlocksDecodeToHeaps) {
  MARROW_REQUIRE_TESTDATA();
  for (const char* name : {"fragments/libpff/data_block.1", "fragments/libpff/data_block.2"}) {
    auto data = test::ReadFileBytes(test::Sample(name));
    ASSERT_GT(data.size(), 3u) << name;
    DecodeBlock(data.data(), data.size(), 0, true, kCryptPermute);
    EXPECT_EQ(data[2], 0xEC) << name;
  }
}

std::vector<std::uint8_t> Deflate(const std::vector<std::uint8_t>& plain) {
  uLongf n = compressBound(plain.size());
  std::vector<std::uint8_t> out(n);
  compress2(out.data(), &n, plain.data(), plain.size(), 6);
  out.resize(n);
  return out;
}

TEST(InflateBuffer, InflatesRealCompressedBlock) {
  MARROW_REQUIRE_TESTDATA();
  auto data = test::ReadFileBytes(test::Sample("fragments/libpff/data_block.3"));
  ASSERT_TRUE(LooksDeflated(data));
  auto out = InflateBuffer(data);
  // Trailing bytes after the stream (the block's padding and trailer) are ignored.
  EXPECT_EQ(out.size(), 11866u);
  EXPECT_EQ(out[2], 0xEC);
}

TEST(InflateBuffer, LongStreamCrossesInputAndOutputPieces) {
  std::vector<std::uint8_t> plain(100000);
  for (std::size_t i = 0; i < plain.size(); ++i) plain[i] = static_cast<std::uint8_t>((i * 131) >> 3);
  EXPECT_EQ(InflateBuffer(Deflate(plain)), plain);
}

TEST(InflateBuffer, BrokenStreamsGiveWhatCameOutBefore) {
  std::vector<std::uint8_t> plain(50000, 'x');
  for (std::size_t i = 0; i < plain.size(); i += 7) plain[i] = static_cast<std::uint8_t>(i);
  auto packed = Deflate(plain);
  auto cut = packed;
  cut.resize(packed.size() / 2);
  auto half = InflateBuffer(cut);
  EXPECT_LT(half.size(), plain.size());
  EXPECT_TRUE(std::equal(half.begin(), half.end(), plain.begin())) << "a prefix, not garbage";

  EXPECT_TRUE(InflateBuffer(std::vector<std::uint8_t>{0x78, 0x9C, 0xFF, 0xFF, 0xFF}).empty());
  EXPECT_TRUE(InflateBuffer({}).empty());
}

TEST(InflateBuffer, OutputIsBounded) {
  std::vector<std::uint8_t> zeros(8u << 20, 0);
  auto bomb = Deflate(zeros);
  EXPECT_LT(bomb.size(), 64u * 1024);
  EXPECT_EQ(InflateBuffer(bomb).size(), kMaxInflatedSize);
  EXPECT_EQ(InflateBuffer(bomb, 1000).size(), 1000u);
}

}  // namespace
}  // namespace marrow
