// Snapshot files: the byte layout, a save and reload of a real scan, and
// the header checks in their order.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "content/property_values.h"
#include "store/folder_items.h"
#include "store/lost_item_scanner.h"
#include "store/snapshot.h"
#include "tests/support/recovered_tree.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using Buf = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

// One line per visible folder: its path, then every item row (node id, data
// block, lost) as the item list would show them.
Lines Listing(const test::Recovered& s, std::size_t* lost = nullptr) {
  Lines lines;
  for (const auto& [path, item] : s.Paths()) {
    const FolderRecord* folder = s.RowOf(item);
    if (folder == nullptr) {
      ADD_FAILURE() << "no folder row for " << path;
      continue;
    }
    std::string line = path;
    ForEachFolderItem(*s.reader, s.state, folder->nodeId, 1, [&](const FolderItem& i) {
      line += " " + std::to_string(i.nodeId) + ":" + std::to_string(i.dataBlock) +
              (i.isLost ? "L" : "");
      if (lost != nullptr) *lost += i.isLost;
    });
    lines.push_back(line);
  }
  return lines;
}

// A copy of a sample in the folder, and a scan request for it.
ScanRequest Copy(const test::TempFolder& dir, const char* sample, int mode = kQuickScan) {
  ScanRequest request;
  request.sourcePath = dir.Path("source.ost");
  fs::copy_file(test::Sample(sample), request.sourcePath, fs::copy_options::overwrite_existing);
  request.mode = mode;
  return request;
}

// Writes a snapshot of a scan of `request`, and reloads it as the application does.
test::Recovered SaveAndReload(const test::TempFolder& dir, const ScanRequest& request,
                              Lines& before, std::size_t* lost = nullptr) {
  const std::string snap = dir.Path("scan.vorsnp");
  {
    const test::Recovered first = test::ScanPath(request, dir.Path("temp"));
    EXPECT_TRUE(first.outcome.opened);
    before = Listing(first, lost);
    WriteSnapshot(*first.reader, first.state, snap);
  }
  SnapshotHeader header;
  std::string error;
  EXPECT_TRUE(ReadSnapshotHeader(snap, header, error)) << error;
  EXPECT_EQ(header.sourcePath, request.sourcePath);
  EXPECT_EQ(header.sourceSize, fs::file_size(request.sourcePath));
  EXPECT_EQ(header.rawMode, request.mode == kRawScan);
  return test::ScanPath(SnapshotRequest(header, snap), header.tempFolder);
}

TEST(SnapshotFiles, ReloadGivesTheSameTreeAndItemRows) {
  MARROW_REQUIRE_TESTDATA();
  const test::TempFolder dir("snapshot");
  for (const char* sample :
       {"ost/unicode512/aspose_SampleOstFile.ost", "pst/ansi/pst2john_97_outlook_pass12345.pst",
        "ost4k/aspose_SampleOstFile.uncompressed.ost"}) {
    SCOPED_TRACE(sample);
    Lines before;
    std::size_t lost = 0;
    const test::Recovered second = SaveAndReload(dir, Copy(dir, sample), before, &lost);
    ASSERT_FALSE(before.empty());
    if (std::string(sample).rfind("ost/unicode512", 0) == 0) {
      EXPECT_GT(lost, 0u) << "the reload must have had lost rows to bring back";
    }
    // Lost rows list as lost again (the scan's lists come back), but the
    // folder rows come back unmarked: the file keeps no mark for them.
    EXPECT_EQ(Listing(second), before);
    for (const FolderRecord& f : second.state.folders) EXPECT_FALSE(f.isLost) << f.name;
  }
}

TEST(SnapshotFiles, RawScanReloadGainsTheStandardFolders) {
  MARROW_REQUIRE_TESTDATA();
  const test::TempFolder dir("snapshot-raw");
  Lines before;
  const test::Recovered second =
      SaveAndReload(dir, Copy(dir, "pst/unicode/aspose_Outlook.pst", kRawScan), before);
  ASSERT_EQ(before.size(), 1u);
  ASSERT_EQ(before[0].rfind("/All Emails ", 0), 0u);
  // The reload builds its tree as the first step does, which makes up the two
  // standard folders a raw scan's list always lacks; in a raw scan every
  // folder lists every scanned message.
  const std::string rows = before[0].substr(std::string("/All Emails").size());
  EXPECT_EQ(Listing(second),
            (Lines{before[0], "/IPM_SUBTREE" + rows, "/IPM_SUBTREE/Deleted Items" + rows}));
}

TEST(SnapshotFiles, LayoutIsFixedFieldsThenSections) {
  MARROW_REQUIRE_TESTDATA();
  const test::TempFolder dir("snapshot-layout");
  const ScanRequest request = Copy(dir, "pst/unicode/aspose_Outlook.pst");
  const test::Recovered s = test::ScanPath(request, dir.Path("temp/"));
  const std::string snap = dir.Path("layout.vorsnp");
  WriteSnapshot(*s.reader, s.state, snap);
  const Buf b = test::ReadFileBytes(snap);
  const RecoveryState& r = s.state;
  LostItemScanner& scan = s.reader->Scanner();
  auto u64 = [&](std::size_t at) { return ReadU64(b, at); };

  ASSERT_GT(b.size(), 1084u);
  EXPECT_EQ(std::string(b.begin(), b.begin() + 4), "VORP");
  const Buf wide = Utf8ToUtf16(request.sourcePath);
  EXPECT_TRUE(std::equal(wide.begin(), wide.end(), b.begin() + 4));
  EXPECT_TRUE(std::all_of(b.begin() + 4 + wide.size(), b.begin() + 524,
                          [](std::uint8_t x) { return x == 0; }));
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

  auto write = [&](const std::string& name, const std::string& magic, const std::string& src,
                   const std::string& tmp) {
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
  EXPECT_FALSE(
      ReadSnapshotHeader(dir.Write("text.vorsnp", Buf(text.begin(), text.end())), h, error));
  EXPECT_EQ(error.rfind("File ", 0), 0u);

  // A path longer than the field keeps its first 259 characters.
  StoreReader reader;
  reader.OpenSource(nullptr, std::string(300, 'p'));  // names the source; no file behind it
  WriteSnapshot(reader, RecoveryState(), dir.Path("long.vorsnp"));
  ASSERT_TRUE(fs::exists(dir.Path("long.vorsnp")));
  const Buf b = test::ReadFileBytes(dir.Path("long.vorsnp"));
  EXPECT_EQ(Utf16ToUtf8(b.data() + 4, 520), std::string(259, 'p'));
  // A snapshot that cannot be created leaves nothing behind.
  WriteSnapshot(reader, RecoveryState(), dir.Path("no-such-dir/x.vorsnp"));
  EXPECT_FALSE(fs::exists(dir.Path("no-such-dir")));
}

}  // namespace
}  // namespace marrow
