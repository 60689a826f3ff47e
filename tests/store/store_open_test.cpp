// Opening a store: the form table, exclusive access, headers that lie.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "store/block_codec.h"
#include "store/store_reader.h"
#include "tests/support/store_builder.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

class TempDir {
 public:
  TempDir() : path_(fs::temp_directory_path() / ("marrow-open-" + std::to_string(::getpid()))) {
    fs::create_directories(path_);
  }
  ~TempDir() { fs::remove_all(path_); }
  std::string Write(const std::string& name, const std::vector<std::uint8_t>& bytes) const {
    const fs::path p = path_ / name;
    std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return p.string();
  }

 private:
  fs::path path_;
};

TEST(FormForVersion, EveryVersionWordGetsAForm) {
  for (unsigned v = 0; v <= 0xFFFF; ++v) {
    StoreForm f = FormForVersion(static_cast<std::uint16_t>(v));
    if (v == 0x15 || v == 0x17) {
      EXPECT_EQ(f.isAnsi, 0) << v;
      EXPECT_FALSE(f.isLargePage) << v;
    } else if (v >= 0x23) {
      EXPECT_EQ(f.isAnsi, 0) << v;
      EXPECT_TRUE(f.isLargePage) << v;
    } else {
      // 0x0E and 0x0F, and every unknown value below 0x23, an empty header included.
      EXPECT_EQ(f.isAnsi, 1) << v;
      EXPECT_FALSE(f.isLargePage) << v;
    }
  }
}

TEST(OpenStore, ReadsFormCryptByteAndRootsOfEachForm) {
  struct Case {
    test::Form form;
    int isAnsi;
    bool large;
  } cases[] = {{test::Form::Ansi512, 1, false}, {test::Form::Unicode512, 0, false}, {test::Form::Unicode4096, 0, true}};
  for (const Case& c : cases) {
    test::StoreBuilder b(c.form);
    b.CryptByte(2);
    b.Roots(0x4400, 0x4800);
    StoreReader r;
    ASSERT_TRUE(r.OpenSource(b.Source()));
    EXPECT_EQ(r.IsAnsi(), c.isAnsi);
    EXPECT_EQ(r.IsLargePage(), c.large);
    EXPECT_EQ(r.CryptMethod(), kCryptCyclic) << "with no votes the header's byte stands";
    EXPECT_EQ(r.nodeRootOffset, 0x4400u);
    EXPECT_EQ(r.blockRootOffset, 0x4800u);
  }
}

TEST(OpenStore, VersionWord0x24IsTheLargeForm) {
  test::StoreBuilder b(test::Form::Unicode4096);
  b.VersionWord(0x24);
  StoreReader r;
  ASSERT_TRUE(r.OpenSource(b.Source()));
  EXPECT_TRUE(r.IsLargePage());
  EXPECT_EQ(r.IsAnsi(), 0);
}

TEST(OpenStore, UnknownCryptByteLeavesBlocksAsStored) {
  test::StoreBuilder b(test::Form::Unicode512);
  b.CryptByte(7);
  std::vector<std::uint8_t> block = {0x01, 0x02, 0x03, 0x04, 0x05};
  b.Put(0x8000, block);
  b.BlockLeaf(0x4000, {{0x40, 0x8000, 5}});
  b.Roots(0x4200, 0x4000);
  StoreReader r;
  ASSERT_TRUE(r.OpenSource(b.Source()));
  EXPECT_EQ(r.CryptMethod(), 7);
  MemorySink out;
  r.ReadBlockInto(0x40, out);
  EXPECT_EQ(out.Data(), block);
}

TEST(OpenStore, TinyAndMissingFiles) {
  TempDir dir;
  const std::string tiny = dir.Write("tiny.ost", std::vector<std::uint8_t>(100, 0));
  StoreReader r;
  ASSERT_TRUE(r.OpenStore(tiny)) << "a file of 100 bytes opens";
  EXPECT_EQ(r.IsAnsi(), 1);
  r.BuildFolderRows();
  EXPECT_TRUE(r.folderRows.empty());

  StoreReader missing;
  EXPECT_FALSE(missing.OpenStore("/nonexistent/file.ost"));
  EXPECT_EQ(missing.LastError(), "Unable to open sorce file");
  EXPECT_FALSE(missing.IsOpen());
  StoreReader folder;
  EXPECT_FALSE(folder.OpenStore(fs::temp_directory_path().string()));
}

TEST(OpenStore, AccessIsExclusiveAndReopeningReleasesTheFirstHandle) {
  TempDir dir;
  test::StoreBuilder b(test::Form::Unicode512);
  const std::string path = dir.Write("store.ost", b.Bytes());
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
