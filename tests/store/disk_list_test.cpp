// Disk-backed lists: the append buffer, chunked reading and the tail stage.
#include <filesystem>

#include <gtest/gtest.h>

#include "store/disk_list.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::Column;

TEST(DiskList, ShortListsLiveInTheBufferAndEndForGood) {
  DiskList empty("SDNLListDId", 8);
  std::uint64_t v = 0;
  empty.Rewind();
  EXPECT_FALSE(empty.NextU64(v));
  EXPECT_FALSE(empty.NextU64(v));

  DiskList list("SONListID", 8);
  for (std::uint64_t i = 1; i <= 10; ++i) list.AppendU64(i * 3);
  EXPECT_EQ(std::filesystem::file_size(list.Path()), 0u) << "nothing written yet";
  EXPECT_EQ(Column(list), (std::vector<std::uint64_t>{3, 6, 9, 12, 15, 18, 21, 24, 27, 30}));
  EXPECT_FALSE(list.NextU64(v)) << "past the end it keeps saying no";
  EXPECT_EQ(list.ReadCount(), 10u);
  // A record appended after a rewind is read after the next one.
  list.Rewind();
  EXPECT_TRUE(list.NextU64(v));
  list.AppendU64(33);
  EXPECT_EQ(Column(list).size(), 11u);
}

TEST(DiskList, TheRecordAfterAFullBufferFlushesIt) {
  DiskList list("SONListFO", 8);
  for (std::uint64_t i = 0; i < 8192; ++i) list.AppendU64(i);
  EXPECT_EQ(std::filesystem::file_size(list.Path()), 0u) << "8192 records of 8 bytes fill the buffer exactly";
  list.AppendU64(8192);
  EXPECT_EQ(std::filesystem::file_size(list.Path()), 0x10000u);
  const std::vector<std::uint64_t> all = Column(list);
  ASSERT_EQ(all.size(), 8193u);
  for (std::uint64_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], i);
}

TEST(DiskList, ManyChunksAndOddRecordSizes) {
  // Size 3 does not divide 64 KiB: each chunk leaves its last byte unused.
  for (std::uint16_t size : {1, 2, 3, 8}) {
    SCOPED_TRACE(size);
    DiskList list("x", size);
    const std::uint32_t n = 200000;
    std::vector<std::uint8_t> record(size);
    for (std::uint32_t i = 0; i < n; ++i) {
      for (std::uint16_t b = 0; b < size; ++b) record[b] = static_cast<std::uint8_t>(i >> (8 * (b % 4)));
      list.Append(record.data());
    }
    list.Rewind();
    std::uint32_t read = 0;
    bool inOrder = true;
    while (list.Next(record.data())) inOrder = inOrder && record[0] == static_cast<std::uint8_t>(read++);
    EXPECT_EQ(read, n);
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(list.RecordCount(), n);
  }
}

TEST(DiskList, ContainsSearchesFileAndBufferWithoutMovingTheCursor) {
  std::string path;
  {
    DiskList list("SONListID", 8);
    path = list.Path();
    for (std::uint64_t i = 0; i < 20000; ++i) list.AppendU64(i * 2);
    list.Rewind();
    std::uint64_t v = 0;
    ASSERT_TRUE(list.NextU64(v));
    ASSERT_TRUE(list.NextU64(v));
    const std::uint64_t inFile = 200, inBuffer = 39998, absent = 201;
    EXPECT_TRUE(list.Contains(&inFile));
    EXPECT_TRUE(list.Contains(&inBuffer));
    EXPECT_FALSE(list.Contains(&absent));
    ASSERT_TRUE(list.NextU64(v));
    EXPECT_EQ(v, 4u) << "the read cursor did not move";
    EXPECT_TRUE(std::filesystem::exists(path));
  }
  EXPECT_FALSE(std::filesystem::exists(path)) << "the file goes with the list";
}

}  // namespace
}  // namespace marrow
