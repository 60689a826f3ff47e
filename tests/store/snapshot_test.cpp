// Snapshot files: the byte layout and the header checks in their order. That
// a reload gives the first run's lists and tree is held by the store fuzz
// target, over every seed, quick and raw.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "content/property_values.h"
#include "store/lost_item_scanner.h"
#include "store/snapshot.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using Buf = std::vector<std::uint8_t>;

// A copy of a sample in the folder, and a scan request for it.
ScanRequest Copy(const test::TempFolder& dir, const char* sample, int mode = kQuickScan) {
  ScanRequest request;
  request.sourcePath = dir.Path("source.ost");
  fs::copy_file(test::Sample(sample), request.sourcePath, fs::copy_options::overwrite_existing);
  request.mode = mode;
  return request;
}

TEST(SnapshotFiles, LayoutIsFixedFieldsThenSections) {
  MARROW_REQUIRE_TESTDATA();
  const test::TempFolder dir("snapshot-layout");
  const ScanRequest request = Copy(dir, "pst/unicode/aspose_Outlook.pst");
  const test::Recovered s = test::ScanPath(request, dir.Path("temp/"));
  const std::string snap = dir.Path("layout.vorsnp");
  WriteSnapshot(*s.reader, s.state, snap);
  const Buf b = test::ReadFile<test::Buf>(snap);
  const RecoveryState& r = s.state;
  LostItemScanner& scan = s.reader->Scanner();
  auto u64 = [&](std::size_t at) { return ReadU64(b, at); };

  ASSERT_GT(b.size(), 1084u);
  EXPECT_EQ(std::string(b.begin(), b.begin() + 4), "VORP");
  const Buf wide = Utf8ToUtf16(request.sourcePath);
  EXPECT_TRUE(std::equal(wide.begin(), wide.end(), b.begin() + 4));
  EXPECT_TRUE(std::all_of(b.begin() + 4 + wide.size(), b.begin() + 524, [](std::uint8_t x) { return x == 0; }));
  EXPECT_EQ(Utf16ToUtf8(b.data() + 524, 520), dir.Path("temp/"));
  EXPECT_EQ(u64(1044), fs::file_size(request.sourcePath));
  EXPECT_EQ(u64(1052), 0u) << "64-bit form";
  EXPECT_EQ(u64(1060), 0u);
  EXPECT_EQ(u64(1068), 0u);
  EXPECT_EQ(u64(1076), r.folderRows.size());
  std::size_t at = 1084;
  for (const FolderRow& row : r.folderRows) {
    EXPECT_EQ(u64(at), row.nodeId);
    EXPECT_EQ(u64(at + 24), row.parent);
    at += 32;
  }
  // Block rows: three values; scanned node rows: five, the mark first.
  EXPECT_EQ(u64(at), scan.blocks.RecordCount());
  at += 8 + 24 * scan.blocks.RecordCount();
  EXPECT_EQ(u64(at), scan.folders.RecordCount());
  if (scan.folders.RecordCount() > 0) {
    EXPECT_EQ(u64(at + 8), 1u);
  }
  at += 8 + 40 * scan.folders.RecordCount();
  EXPECT_EQ(u64(at), scan.messages.RecordCount());
  at += 8 + 40 * scan.messages.RecordCount();
  ASSERT_EQ(u64(at), r.folders.size());
  at += 8;
  for (const FolderRecord& f : r.folders) {
    const std::size_t nameBytes = ReadU16(b, at);
    EXPECT_EQ(Utf16ToUtf8(b.data() + at + 2, nameBytes), f.name);
    at += 2 + nameBytes;
    at += 2 + ReadU16(b, at);  // the class
    EXPECT_EQ(u64(at), f.nodeId);
    EXPECT_EQ(u64(at + 8), f.parentId);
    EXPECT_EQ(u64(at + 16), f.itemCount);
    at += 24;
  }
  EXPECT_EQ(at, b.size());

  // A snapshot cut short loads what it still holds, without complaint.
  const std::string cut = dir.Write("cut.vorsnp", Buf(b.begin(), b.begin() + 1084 + 32 * 3 + 5));
  StoreReader partial;
  RecoveryState partialState;
  EXPECT_TRUE(ReadSnapshotBody(partial, partialState, cut));
  EXPECT_EQ(partialState.folderRows.size(), 3u);
  EXPECT_EQ(partial.Scanner().blocks.RecordCount(), 0u);
}

TEST(SnapshotFiles, HeaderChecksComeInTheirOrder) {
  const test::TempFolder dir("snapshot-header");
  SnapshotHeader h;
  std::string error;
  EXPECT_FALSE(ReadSnapshotHeader(dir.Path("missing.vorsnp"), h, error));
  EXPECT_EQ(error, "Unable to open file");

  auto write = [&](const std::string& name, const std::string& magic, const std::string& src, const std::string& tmp) {
    Buf b(1084, 0);
    std::copy(magic.begin(), magic.end(), b.begin());
    const Buf s = Utf8ToUtf16(src), t = Utf8ToUtf16(tmp);
    std::copy(s.begin(), s.end(), b.begin() + 4);
    std::copy(t.begin(), t.end(), b.begin() + 524);
    return dir.Write(name, b);
  };
  const std::string gone = dir.Path("moved-away.ost");
  EXPECT_FALSE(ReadSnapshotHeader(write("a.vorsnp", "VORP", gone, dir.Path("t")), h, error));
  EXPECT_EQ(error, "File " + gone + " not found");

  // A present source and a missing temp folder: the folder is made, parents too.
  const std::string source = dir.Write("present.ost", {'x'});
  const std::string temp = dir.Path("deep/er/temp");
  EXPECT_TRUE(ReadSnapshotHeader(write("b.vorsnp", "VORP", source, temp), h, error)) << error;
  EXPECT_EQ(h.tempFolder, temp + "/");
  EXPECT_TRUE(fs::is_directory(temp));

  // The magic is tested last; a file that is no snapshot fails on its "paths" first.
  EXPECT_FALSE(ReadSnapshotHeader(write("c.vorsnp", "NOPE", source, temp), h, error));
  EXPECT_EQ(error, "invalid snapshot file");
  const std::string text = "Just some text, not a snapshot.";
  EXPECT_FALSE(ReadSnapshotHeader(dir.Write("text.vorsnp", Buf(text.begin(), text.end())), h, error));
  EXPECT_EQ(error.rfind("File ", 0), 0u);

  // A path longer than the field keeps its first 259 characters.
  StoreReader reader;
  reader.OpenSource(nullptr, std::string(300, 'p'));  // names the source; no file behind it
  WriteSnapshot(reader, RecoveryState(), dir.Path("long.vorsnp"));
  ASSERT_TRUE(fs::exists(dir.Path("long.vorsnp")));
  const Buf b = test::ReadFile<test::Buf>(dir.Path("long.vorsnp"));
  EXPECT_EQ(Utf16ToUtf8(b.data() + 4, 520), std::string(259, 'p'));
  // A snapshot that cannot be created leaves nothing behind.
  WriteSnapshot(reader, RecoveryState(), dir.Path("no-such-dir/x.vorsnp"));
  EXPECT_FALSE(fs::exists(dir.Path("no-such-dir")));
}

}  // namespace
}  // namespace marrow
