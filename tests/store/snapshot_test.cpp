// Snapshot files: the byte layout, a save and reload of a real scan, and
// the header checks in their order.
#include <filesystem>
#include <fstream>
#include <map>

#include <gtest/gtest.h>

#include "content/property_values.h"
#include "store/folder_items.h"
#include "store/lost_item_scanner.h"
#include "store/memory_tree.h"
#include "store/snapshot.h"
#include "store/store_reader.h"
#include "store/start_scan.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using Buf = std::vector<std::uint8_t>;

struct Scan {
  std::unique_ptr<StoreReader> reader;
  MemoryTree tree;
  TreeItem root = 0;
};

// One line per visible folder: its path, then every item row (node id,
// data block, lost) as the item list would show them.
std::vector<std::string> Listing(Scan& s, std::size_t* lost = nullptr) {
  std::map<TreeItem, const FolderRecord*> rowOf;
  for (const FolderRecord& f : s.reader->folders) rowOf[f.treeItem] = &f;
  std::vector<std::string> lines, names;
  s.tree.ForEachBelow(s.root, [&](TreeItem item, int depth) {
    names.resize(depth - 1);
    names.push_back(s.tree.Find(item)->text);
    std::string line;
    for (const std::string& n : names) line += "/" + n;
    const FolderRecord* f = rowOf.at(item);
    ForEachFolderItem(*s.reader, f->nodeId, 1, [&](const FolderItem& i) {
      line += " " + std::to_string(i.nodeId) + ":" + std::to_string(i.dataBlock) + (i.isLost ? "L" : "");
      if (lost != nullptr) *lost += i.isLost;
    });
    lines.push_back(line);
  });
  return lines;
}

Scan ScanSource(const ScanRequest& request, const std::string& temp) {
  Scan s;
  s.reader = std::make_unique<StoreReader>(temp);
  s.root = s.tree.AddRoot(request.sourcePath, 9);
  EXPECT_TRUE(StartScan(*s.reader, s.tree, s.root, request).opened);
  return s;
}

class SnapshotFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("snapshot-" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string In(const std::string& name) const { return (dir_ / name).string(); }

  fs::path dir_;
};

std::uint64_t U64(const Buf& b, std::size_t at) { return ReadU64(b, at); }

TEST_F(SnapshotFiles, ReloadGivesTheSameTreeAndItemRows) {
  MARROW_REQUIRE_TESTDATA();
  for (const char* sample : {"ost/unicode512/aspose_SampleOstFile.ost", "pst/ansi/pst2john_97_outlook_pass12345.pst",
                             "ost4k/aspose_SampleOstFile.uncompressed.ost"}) {
    SCOPED_TRACE(sample);
    const std::string source = In("source.ost");
    fs::copy_file(test::Sample(sample), source, fs::copy_options::overwrite_existing);
    const std::string snap = In("scan.vorsnp");
    ScanRequest request;
    request.sourcePath = source;
    std::vector<std::string> before;
    std::size_t lostBefore = 0;
    {
      Scan first = ScanSource(request, In("temp"));
      before = Listing(first, &lostBefore);
      WriteSnapshot(*first.reader, snap);
    }
    ASSERT_FALSE(before.empty());

    SnapshotHeader header;
    std::string error;
    ASSERT_TRUE(ReadSnapshotHeader(snap, header, error)) << error;
    EXPECT_EQ(header.sourcePath, source);
    EXPECT_EQ(header.sourceSize, fs::file_size(source));
    const ScanRequest reload = SnapshotRequest(header, snap);
    Scan second = ScanSource(reload, header.tempFolder);
    // Lost rows list as lost again (the scan's lists come back), but the
    // folder rows themselves come back unmarked: the file keeps no mark for them.
    EXPECT_EQ(Listing(second), before);
    for (const FolderRecord& f : second.reader->folders) EXPECT_FALSE(f.isLost) << f.name;
    // The reload must have had lost rows to bring back.
    if (std::string(sample).find("ost/unicode512") == 0) EXPECT_GT(lostBefore, 0u);
  }
}

TEST_F(SnapshotFiles, RawScanReloadGainsTheStandardFolders) {
  MARROW_REQUIRE_TESTDATA();
  const std::string source = In("raw.pst");
  fs::copy_file(test::Sample("pst/unicode/aspose_Outlook.pst"), source);
  const std::string snap = In("raw.vorsnp");
  ScanRequest request;
  request.sourcePath = source;
  request.mode = kRawScan;
  std::vector<std::string> before;
  {
    Scan first = ScanSource(request, In("temp"));
    before = Listing(first);
    WriteSnapshot(*first.reader, snap);
  }
  ASSERT_EQ(before.size(), 1u);
  EXPECT_EQ(before[0].rfind("/All Emails ", 0), 0u);
  SnapshotHeader header;
  std::string error;
  ASSERT_TRUE(ReadSnapshotHeader(snap, header, error)) << error;
  EXPECT_TRUE(header.rawMode);
  Scan second = ScanSource(SnapshotRequest(header, snap), header.tempFolder);
  // The reload builds its tree as the first step does, and that step makes
  // up the two standard folders wherever a list lacks them; a raw scan's
  // list always does. In a raw scan every folder lists every scanned
  // message, so the two show what "All Emails" shows.
  const std::string rows = before[0].substr(std::string("/All Emails").size());
  const std::vector<std::string> after = Listing(second);
  EXPECT_EQ(after, (std::vector<std::string>{before[0], "/IPM_SUBTREE" + rows, "/IPM_SUBTREE/Deleted Items" + rows}));
}

TEST_F(SnapshotFiles, LayoutIsFixedFieldsThenSections) {
  MARROW_REQUIRE_TESTDATA();
  const std::string source = In("source.pst");
  fs::copy_file(test::Sample("pst/unicode/aspose_Outlook.pst"), source);
  ScanRequest request;
  request.sourcePath = source;
  Scan s = ScanSource(request, In("temp/"));
  const std::string snap = In("layout.vorsnp");
  WriteSnapshot(*s.reader, snap);
  const Buf b = test::ReadFileBytes(snap);
  StoreReader& r = *s.reader;
  LostItemScanner& scan = r.Scanner();

  ASSERT_GT(b.size(), 1084u);
  EXPECT_EQ(std::string(b.begin(), b.begin() + 4), "VORP");
  const Buf wide = Utf8ToUtf16(source);
  EXPECT_TRUE(std::equal(wide.begin(), wide.end(), b.begin() + 4));
  EXPECT_TRUE(std::all_of(b.begin() + 4 + wide.size(), b.begin() + 524, [](std::uint8_t x) { return x == 0; }));
  EXPECT_EQ(Utf16ToUtf8(b.data() + 524, 520), In("temp/"));
  EXPECT_EQ(U64(b, 1044), fs::file_size(source));
  EXPECT_EQ(U64(b, 1052), 0u);  // 64-bit form
  EXPECT_EQ(U64(b, 1060), 0u);
  EXPECT_EQ(U64(b, 1068), 0u);
  EXPECT_EQ(U64(b, 1076), r.folderRows.size());

  std::size_t at = 1084;
  for (const FolderRow& row : r.folderRows) {
    EXPECT_EQ(U64(b, at), row.nodeId);
    EXPECT_EQ(U64(b, at + 24), row.parent);
    at += 32;
  }
  // Block rows: three values; scanned node rows: five, the mark first.
  EXPECT_EQ(U64(b, at), scan.blockIds.RecordCount());
  at += 8 + 24 * scan.blockIds.RecordCount();
  EXPECT_EQ(U64(b, at), scan.folders.mark.RecordCount());
  if (scan.folders.mark.RecordCount() > 0) EXPECT_EQ(U64(b, at + 8), 1u);
  at += 8 + 40 * scan.folders.mark.RecordCount();
  EXPECT_EQ(U64(b, at), scan.messages.mark.RecordCount());
  at += 8 + 40 * scan.messages.mark.RecordCount();
  ASSERT_EQ(U64(b, at), r.folders.size());
  at += 8;
  for (const FolderRecord& f : r.folders) {
    const std::size_t nameBytes = b[at] | (b[at + 1] << 8);
    EXPECT_EQ(Utf16ToUtf8(b.data() + at + 2, nameBytes), f.name);
    at += 2 + nameBytes;
    const std::size_t classBytes = b[at] | (b[at + 1] << 8);
    at += 2 + classBytes;
    EXPECT_EQ(U64(b, at), f.nodeId);
    EXPECT_EQ(U64(b, at + 8), f.parentId);
    EXPECT_EQ(U64(b, at + 16), f.itemCount);
    at += 24;
  }
  EXPECT_EQ(at, b.size());

  // A snapshot cut short loads what it still holds, without complaint.
  const std::string cut = In("cut.vorsnp");
  std::ofstream(cut, std::ios::binary).write(reinterpret_cast<const char*>(b.data()), 1084 + 32 * 3 + 5);
  StoreReader partial;
  EXPECT_TRUE(ReadSnapshotBody(partial, cut));
  EXPECT_EQ(partial.folderRows.size(), 3u);
  EXPECT_EQ(partial.Scanner().blockIds.RecordCount(), 0u);
}

TEST_F(SnapshotFiles, HeaderChecksComeInTheirOrder) {
  SnapshotHeader h;
  std::string error;
  EXPECT_FALSE(ReadSnapshotHeader(In("missing.vorsnp"), h, error));
  EXPECT_EQ(error, "Unable to open file");

  // Built by hand: a source that was moved away.
  auto write = [&](const std::string& name, const std::string& magic, const std::string& src, const std::string& tmp) {
    Buf b(1084, 0);
    std::copy(magic.begin(), magic.end(), b.begin());
    const Buf s = Utf8ToUtf16(src), t = Utf8ToUtf16(tmp);
    std::copy(s.begin(), s.end(), b.begin() + 4);
    std::copy(t.begin(), t.end(), b.begin() + 524);
    std::ofstream(In(name), std::ios::binary).write(reinterpret_cast<const char*>(b.data()), b.size());
    return In(name);
  };
  const std::string gone = In("moved-away.ost");
  EXPECT_FALSE(ReadSnapshotHeader(write("a.vorsnp", "VORP", gone, In("t")), h, error));
  EXPECT_EQ(error, "File " + gone + " not found");

  // A present source and a missing temp folder: the folder is made, parents too.
  const std::string source = In("present.ost");
  std::ofstream(source) << "x";
  const std::string temp = In("deep/er/temp");
  EXPECT_TRUE(ReadSnapshotHeader(write("b.vorsnp", "VORP", source, temp), h, error)) << error;
  EXPECT_EQ(h.tempFolder, temp + "/");
  EXPECT_TRUE(fs::is_directory(temp));

  // The magic is tested last.
  EXPECT_FALSE(ReadSnapshotHeader(write("c.vorsnp", "NOPE", source, temp), h, error));
  EXPECT_EQ(error, "invalid snapshot file");
  // A file that is no snapshot fails on its "paths" first.
  std::ofstream(In("text.vorsnp")) << "Just some text, not a snapshot.";
  EXPECT_FALSE(ReadSnapshotHeader(In("text.vorsnp"), h, error));
  EXPECT_EQ(error.rfind("File ", 0), 0u);

  // A path longer than the field keeps its first 259 characters.
  StoreReader reader;
  reader.sourcePath = std::string(300, 'p');
  WriteSnapshot(reader, In("long.vorsnp"));
  ASSERT_TRUE(fs::exists(In("long.vorsnp")));
  const Buf b = test::ReadFileBytes(In("long.vorsnp"));
  EXPECT_EQ(Utf16ToUtf8(b.data() + 4, 520), std::string(259, 'p'));
  // A snapshot that cannot be created leaves nothing behind.
  WriteSnapshot(reader, In("no-such-dir/x.vorsnp"));
  EXPECT_FALSE(fs::exists(In("no-such-dir")));
}

}  // namespace
}  // namespace marrow
