// The item reader's side of a save: mail keeps the converted file, the
// other kinds come back rebuilt from their rows, and the property dump is
// written only when the writer wants it.
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "saving/item_save_driver.h"
#include "store/memory_tree.h"
#include "store/recovery_state.h"
#include "store/start_scan.h"
#include "store/store_reader.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

TEST(ItemSaveDriver, GivesTheFinishedMimeFileHeaderLinesAndTheDumpWhenWanted) {
  const fs::path dir = fs::path(::testing::TempDir()) / ("driver-" + std::to_string(::getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  const fs::path copy = dir / "Sample.ost";
  fs::copy_file(fs::path(MARROW_SOURCE_DIR) / "samples/aspose_SampleOstFile.ost", copy);
  StoreReader reader;
  RecoveryState state;
  MemoryTree tree;
  ScanRequest request;
  request.sourcePath = copy.string();
  ASSERT_TRUE(StartScan(reader, state, tree, tree.AddRoot(copy.string(), 9), request).opened);
  auto first = [&](const std::string& folder) {
    for (const FolderRecord& f : state.folders) {
      std::vector<FolderItem> items;
      if (f.name == folder)
        ForEachFolderItem(reader, state, f.nodeId, 1, [&](const FolderItem& i) { items.push_back(i); });
      if (!items.empty()) return items.front();
    }
    return FolderItem{};
  };
  auto text = [](const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  };
  {
    ItemSaveDriver driver(reader, (dir / "items").string());
    const SaveFilter none;
    const ConvertedItem mail = driver.Convert(first("Inbox"), &none);
    EXPECT_EQ(mail.header.typeText, "EMAIL");
    EXPECT_FALSE(mail.header.subject.empty());
    EXPECT_EQ(text(mail.emlPath).find("ExtraInformation.txt"), std::string::npos);
    EXPECT_EQ(mail.propertyDumpPath, "") << "not wanted";

    const ConvertedItem appointment = driver.Convert(first("Calendar"), &none, ItemWants{true});
    EXPECT_EQ(appointment.header.typeText, "CALENDER");
    EXPECT_NE(appointment.header.itemText.find("<ITEM>START TIME : "), std::string::npos);
    EXPECT_NE(text(appointment.emlPath).find("ExtraInformation.txt"), std::string::npos) << "rebuilt from its rows";
    ASSERT_FALSE(appointment.propertyDumpPath.empty());
    EXPECT_GT(fs::file_size(appointment.propertyDumpPath), 0u);

    SaveFilter refuse;
    refuse.itemTypeInclude = kFilterExclude;
    refuse.itemTypeValues = {"Calendar"};
    const ConvertedItem refused = driver.Convert(first("Calendar"), &refuse, ItemWants{true});
    EXPECT_EQ(refused.emlPath, "");
    EXPECT_EQ(refused.propertyDumpPath, "");
  }
  EXPECT_FALSE(fs::exists(dir / "items")) << "the item folder goes with the driver";
  fs::remove_all(dir);
}

}  // namespace
}  // namespace marrow
