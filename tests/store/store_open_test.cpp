// Opening a store: the form table, exclusive access, headers that lie.
#include <gtest/gtest.h>

#include "store/store_reader.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

TEST(FormForVersion, EveryVersionWordGetsAForm) {
  for (unsigned v = 0; v <= 0xFFFF; ++v) {
    const StoreForm f = FormForVersion(static_cast<std::uint16_t>(v));
    // 0x15 and 0x17 are the 64-bit form, 0x23 and up the large one; 0x0E, 0x0F
    // and every other value below 0x23, an empty header included, the 32-bit one.
    const bool wide = v == 0x15 || v == 0x17 || v >= 0x23;
    EXPECT_EQ(f.isAnsi, wide ? 0 : 1) << v;
    EXPECT_EQ(f.isLargePage, v >= 0x23) << v;
  }
}

TEST(OpenStore, TinyMissingAndFolderFiles) {
  const test::TempFolder dir("open-tiny");
  StoreReader r;
  ASSERT_TRUE(r.OpenStore(dir.Write("tiny.ost", std::vector<std::uint8_t>(100, 0)))) << "a file of 100 bytes opens";
  EXPECT_EQ(r.IsAnsi(), 1);
  EXPECT_TRUE(r.ReadFolderRows().empty());

  StoreReader missing;
  EXPECT_FALSE(missing.OpenStore("/nonexistent/file.ost"));
  EXPECT_EQ(missing.LastError(), "Unable to open sorce file");
  EXPECT_FALSE(missing.IsOpen());
  StoreReader folder;
  EXPECT_FALSE(folder.OpenStore(dir.Dir().string()));
}

TEST(OpenStore, AccessIsExclusiveAndReopeningReleasesTheFirstHandle) {
  const test::TempFolder dir("open-lock");
  const std::string path = dir.Write("store.ost", test::StoreBuilder(test::Form::Unicode512).Bytes());
  StoreReader first;
  ASSERT_TRUE(first.OpenStore(path));
  StoreReader second;
  EXPECT_FALSE(second.OpenStore(path)) << "a store held by another reader is refused";
  EXPECT_EQ(second.LastError(), "Unable to open sorce file");
  EXPECT_TRUE(first.OpenStore(path)) << "opening again releases the first handle first";
  first.OpenStore("/nonexistent");
  EXPECT_TRUE(second.OpenStore(path)) << "a failed reopen still let the file go";
}

}  // namespace
}  // namespace marrow
