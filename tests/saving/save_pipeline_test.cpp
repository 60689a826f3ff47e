// The save walk: folder paths, numbering with gaps, the store's own folder,
// MBOX files per folder, lost-item modes, and names that must not escape.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "saving/save_pipeline.h"
#include "store/memory_tree.h"
#include "store/start_scan.h"
#include "store/store_reader.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

class SaveWalk : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("save-" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_ / "out");
  }
  void TearDown() override { fs::remove_all(dir_); }

  // Recovers the bundled sample (a copy) into `tree`, everything checked.
  // `folder` keeps copies of one name apart: each reader locks its file.
  TreeItem Recover(StoreReader& reader, MemoryTree& tree, const std::string& folder = ".") {
    fs::create_directories(dir_ / folder);
    const fs::path copy = dir_ / folder / "Sample.ost";
    fs::copy_file(fs::path(MARROW_SOURCE_DIR) / "samples/aspose_SampleOstFile.ost", copy,
                  fs::copy_options::overwrite_existing);
    const TreeItem root = tree.AddRoot(copy.string(), 9);
    ScanRequest request;
    request.sourcePath = copy.string();
    EXPECT_TRUE(StartScan(reader, tree, root, request).opened);
    tree.SetCheckedBelow(root, true);
    return root;
  }

  // A stand-in for the item reader: one small message per item, named by
  // its node; `failOn` gives no file for that node.
  ItemConversion FakeConversion(std::uint64_t failOn = 0) {
    return [this, failOn](const FolderItem& item, const SaveFilter*) {
      ConvertedItem c;
      c.type = "EMAIL";
      c.subject = std::to_string(item.nodeId);
      c.fromText = item.isLost ? "lost" : "live";
      const fs::path eml = dir_ / (c.subject + ".src");
      if (item.nodeId != failOn) std::ofstream(eml) << "Subject: " << c.subject << "\r\n\r\nbody\r\n";
      c.emlPath = eml.string();
      return c;
    };
  }

  fs::path dir_;
};

TEST_F(SaveWalk, EmlFilesNumberedPerFolderUnderTheStoresOwnFolder) {
  StoreReader reader;
  MemoryTree tree;
  const TreeItem root = Recover(reader, tree);
  MemoryProfile profile;
  SaveOptions options;
  options.kind = kOutputEml;
  options.destinationPath = (dir_ / "out").string();
  SavePipeline pipeline(reader, tree, root, profile);
  // The second item of Inbox/sub1 fails: its number stays unused.
  std::uint64_t second = 0;
  for (const FolderRecord& f : reader.folders) {
    if (f.name != "sub1") continue;
    int n = 0;
    ForEachFolderItem(reader, f.nodeId, 1, [&](const FolderItem& i) { second = ++n == 2 ? i.nodeId : second; });
  }
  pipeline.SetConversion(FakeConversion(second));
  SaveEnd end = pipeline.SaveStore(options);
  ASSERT_FALSE(end.failed) << end.message;
  EXPECT_EQ(end.destination, (dir_ / "out" / "Sample.ost").string() + "/");
  // The top folder "IPM_SUBTREE" is left out of every path; the mailbox root is not a top folder.
  const fs::path inbox = dir_ / "out/Sample.ost/Inbox";
  EXPECT_TRUE(fs::is_directory(inbox / "sub1"));
  EXPECT_TRUE(fs::is_regular_file(inbox / "1.eml"));
  EXPECT_TRUE(fs::is_regular_file(inbox / "sub1/1.eml"));
  EXPECT_FALSE(fs::exists(inbox / "sub1/2.eml")) << "a failed item leaves a gap";
  EXPECT_TRUE(fs::is_regular_file(inbox / "sub1/3.eml"));
  // Folders with nothing in them are made all the same.
  EXPECT_TRUE(fs::is_directory(dir_ / "out/Sample.ost/Root - Mailbox/Finder"));
  // 102 items listed in the tree (92 in the index, 10 lost), one failed.
  EXPECT_EQ(end.itemsWritten, 101u);

}

TEST_F(SaveWalk, LostItemModesAndCheckMarks) {
  StoreReader reader;
  MemoryTree tree;
  const TreeItem root = Recover(reader, tree);
  SaveOptions options;
  options.kind = kOutputEml;
  options.destinationPath = (dir_ / "out").string();
  auto written = [&](int mode) {
    MemoryProfile profile;
    profile.ints[kSaveDeletedKey] = mode;
    SavePipeline p(reader, tree, root, profile);
    p.SetConversion(FakeConversion());
    return p.SaveStore(options).itemsWritten;
  };
  EXPECT_EQ(written(1), 102u);
  EXPECT_EQ(written(2), 92u);
  EXPECT_EQ(written(3), 10u);
  // Only checked folders are saved; a checked child of an unchecked parent
  // keeps its full path.
  tree.SetCheckedBelow(root, false);
  for (const FolderRecord& f : reader.folders) {
    if (f.name == "sub2") tree.SetChecked(f.treeItem, true);
  }
  MemoryProfile profile;
  SavePipeline p(reader, tree, root, profile);
  p.SetConversion(FakeConversion());
  const SaveEnd end = p.SaveStore(options);
  EXPECT_EQ(end.itemsWritten, 31u);
  EXPECT_TRUE(fs::is_regular_file(fs::path(end.destination) / "Inbox/sub2/31.eml"));
  EXPECT_FALSE(fs::exists(fs::path(end.destination) / "Inbox/1.eml"));
}

TEST_F(SaveWalk, MboxFilePerFolderInsideItsFolder) {
  StoreReader reader;
  MemoryTree tree;
  const TreeItem root = Recover(reader, tree);
  MemoryProfile profile;
  SaveOptions options;
  options.kind = kOutputMbox;
  options.destinationPath = (dir_ / "out").string();
  SavePipeline pipeline(reader, tree, root, profile);
  pipeline.SetConversion(FakeConversion());
  const SaveEnd end = pipeline.SaveStore(options);
  ASSERT_FALSE(end.failed) << end.message;
  const fs::path mbox = fs::path(end.destination) / "Inbox/sub2/sub2.MBOX";
  std::ifstream in(mbox, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::size_t messages = 0;
  for (std::size_t at = text.find(MboxWriter::kSeparator); at != std::string::npos;
       at = text.find(MboxWriter::kSeparator, at + 1)) {
    ++messages;
  }
  EXPECT_EQ(messages, 31u);
  EXPECT_EQ(fs::file_size(fs::path(end.destination) / "Root - Mailbox/Finder/Finder.MBOX"), 0u);
}

TEST_F(SaveWalk, HostileFolderNamesStayInsideTheDestination) {
  StoreReader reader;
  reader.sourcePath = (dir_ / "../evil.ost").string();  // the store's own folder is named by the file alone
  MemoryTree tree;
  const TreeItem root = tree.AddRoot("store", 9);
  const std::vector<std::string> names = {"..", "../../escape", std::string("nul\0here", 8), ".", "a:b*c?d",
                                          std::string(300, 'x')};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const TreeItem item = tree.InsertSorted(root, names[i], 10);
    tree.SetChecked(item, true);
    reader.folders.push_back({names[i], "IPF.Note", 0x8000 + 0x20 * i + 2, 0, 0, item});
  }
  MemoryProfile profile;
  SaveOptions options;
  options.kind = kOutputEml;
  options.destinationPath = (dir_ / "out").string();
  SavePipeline pipeline(reader, tree, root, profile);
  pipeline.SetConversion(FakeConversion());
  const SaveEnd end = pipeline.SaveStore(options);
  // The 300-character name makes a path too long: the walk ends with the text.
  EXPECT_TRUE(end.failed);
  EXPECT_EQ(end.message.rfind("The provided path is too long to create\nPlease provide different destination path\n", 0),
            0u);
  std::set<std::string> made;
  for (const auto& e : fs::directory_iterator(dir_ / "out/evil.ost")) made.insert(e.path().filename().string());
  EXPECT_EQ(made, (std::set<std::string>{"_", ".._.._escape", "nul_here", "a_b_c_d"}));
  // Nothing appeared beside the destination.
  std::set<std::string> top;
  for (const auto& e : fs::directory_iterator(dir_)) top.insert(e.path().filename().string());
  EXPECT_EQ(top, (std::set<std::string>{"out"}));

  // An MBOX file is named by the folder's own label: one with "/" fails to
  // open and ends the walk, without writing anywhere.
  options.kind = kOutputMbox;
  SavePipeline mbox(reader, tree, root, profile);
  mbox.SetConversion(FakeConversion());
  const SaveEnd mboxEnd = mbox.SaveStore(options);
  EXPECT_TRUE(mboxEnd.failed);
  top.clear();
  for (const auto& e : fs::directory_iterator(dir_)) top.insert(e.path().filename().string());
  EXPECT_EQ(top, (std::set<std::string>{"out"}));
}

// Items chosen in a list: numbered per folder in the order chosen, under the
// destination itself, with no filter and no lost-item text.
TEST_F(SaveWalk, ChosenItemsNumberedPerFolderInTheOrderChosen) {
  StoreReader reader;
  MemoryTree tree;
  const TreeItem root = Recover(reader, tree);
  std::vector<FolderItem> inbox, sub1;
  for (const FolderRecord& f : reader.folders) {
    if (f.name == "Inbox") ForEachFolderItem(reader, f.nodeId, 1, [&](const FolderItem& i) { inbox.push_back(i); });
    if (f.name == "sub1") ForEachFolderItem(reader, f.nodeId, 1, [&](const FolderItem& i) { sub1.push_back(i); });
  }
  ASSERT_GE(inbox.size(), 2u);
  ASSERT_GE(sub1.size(), 2u);
  auto chosen = [](const std::string& folder, const FolderItem& i) {
    return ChosenItem{folder, i.dataBlock, i.nodeId, i.subnodeBlock};
  };
  const std::vector<ChosenItem> items = {chosen("Inbox/sub1/", sub1[1]), chosen("Inbox/", inbox[0]),
                                         chosen("Inbox/sub1/", sub1[0]), chosen("Inbox/", inbox[1])};
  MemoryProfile profile;
  SavePipeline pipeline(reader, tree, root, profile);
  std::vector<std::string> order;
  const ItemConversion fake = FakeConversion();
  pipeline.SetConversion([&](const FolderItem& item, const SaveFilter* filter) {
    EXPECT_EQ(filter->subjectInclude, kFilterOff) << "no filter in a run over chosen items";
    order.push_back(std::to_string(item.nodeId));
    return fake(item, filter);
  });
  const SaveEnd end = pipeline.SaveChosenItems(items, (dir_ / "out").string(), kOutputEml);
  ASSERT_FALSE(end.failed) << end.message;
  EXPECT_EQ(end.destination, (dir_ / "out").string() + "/") << "no folder of the store's own";
  EXPECT_EQ(end.itemsWritten, 4u);
  // Folders in first-seen order, items in the order chosen inside each.
  EXPECT_EQ(order, (std::vector<std::string>{std::to_string(sub1[1].nodeId), std::to_string(sub1[0].nodeId),
                                             std::to_string(inbox[0].nodeId), std::to_string(inbox[1].nodeId)}));
  auto subjectOf = [](const fs::path& eml) {
    std::ifstream in(eml);
    std::string line;
    std::getline(in, line);
    return line;
  };
  EXPECT_EQ(subjectOf(dir_ / "out/Inbox/sub1/1.eml"), "Subject: " + std::to_string(sub1[1].nodeId) + "\r");
  EXPECT_EQ(subjectOf(dir_ / "out/Inbox/sub1/2.eml"), "Subject: " + std::to_string(sub1[0].nodeId) + "\r");
  EXPECT_EQ(subjectOf(dir_ / "out/Inbox/2.eml"), "Subject: " + std::to_string(inbox[1].nodeId) + "\r");
  EXPECT_EQ(pipeline.Run().saveAsCode, 3u);
  EXPECT_EQ(pipeline.Run().totalInFolder, 0u) << "both go back at the end";
}

// A run over all stores: stores with a checked folder in list order, two of
// one file name in two folders, the pending ones scanned first, and the
// routes this build cannot write yet refused without writing.
TEST_F(SaveWalk, AllStoresInOrderWithTheirOwnFolders) {
  StoreReader first, second, unchecked, pending;
  MemoryTree firstTree, secondTree, uncheckedTree, pendingTree;
  const TreeItem firstRoot = Recover(first, firstTree, "a");
  const TreeItem secondRoot = Recover(second, secondTree, "b");
  const TreeItem uncheckedRoot = Recover(unchecked, uncheckedTree, "c");
  const TreeItem pendingRoot = Recover(pending, pendingTree, "d");
  uncheckedTree.SetCheckedBelow(uncheckedRoot, false);
  MemoryProfile profile;
  SavePipeline a(first, firstTree, firstRoot, profile), b(second, secondTree, secondRoot, profile),
      c(unchecked, uncheckedTree, uncheckedRoot, profile), d(pending, pendingTree, pendingRoot, profile);
  for (SavePipeline* p : {&a, &b, &c, &d}) p->SetConversion(FakeConversion());
  SaveOptions options;
  options.kind = kOutputEml;
  options.destinationPath = (dir_ / "out").string();
  std::vector<std::string> scanned;
  const SaveAllEnd end = SaveAllStores({&a, &c, &b}, options, {pending.sourcePath, "/nowhere/x.ost"},
                                       [&](const std::string& path) -> SavePipeline* {
                                         scanned.push_back(path);
                                         return path == pending.sourcePath ? &d : nullptr;
                                       });
  EXPECT_FALSE(end.cancelled);
  EXPECT_EQ(end.text, "") << "the caller shows the location";
  ASSERT_EQ(end.stores.size(), 3u) << "the store with nothing checked is passed over";
  EXPECT_EQ(end.stores[0].destination, (dir_ / "out/Sample.ost").string() + "/");
  EXPECT_EQ(end.stores[1].destination, (dir_ / "out/Sample.ost(1)").string() + "/");
  EXPECT_EQ(end.stores[2].destination, (dir_ / "out/Sample.ost(2)").string() + "/");
  EXPECT_EQ(scanned, (std::vector<std::string>{pending.sourcePath, "/nowhere/x.ost"}));

  // The store item alone, checked, counts only when its text is not the path.
  EXPECT_FALSE(c.HasCheckedFolder());
  uncheckedTree.SetChecked(uncheckedRoot, true);
  EXPECT_FALSE(c.HasCheckedFolder()) << "its text is the store's path";
  MemoryTree named;
  const TreeItem store = named.AddRoot("Mailbox", 9);
  named.InsertSorted(named.InsertSorted(store, "Inbox", 10), "Deep", 10);
  EXPECT_FALSE(HasCheckedFolder(named, store, "/x/Mailbox.ost"));
  named.SetChecked(store, true);
  EXPECT_TRUE(HasCheckedFolder(named, store, "/x/Mailbox.ost"));
  named.SetChecked(store, false);
  named.SetCheckedBelow(named.FirstChild(named.FirstChild(store)), true);
  EXPECT_TRUE(HasCheckedFolder(named, store, "/x/Mailbox.ost")) << "a checked folder deep down";

  // Outputs whose writers come later fail in words and write nothing; a
  // printed run writes nothing and reports nothing.
  fs::remove_all(dir_ / "out");
  fs::create_directories(dir_ / "out");
  options.kind = kOutputMsg;
  const SaveEnd msg = a.SaveStore(options);
  EXPECT_TRUE(msg.failed);
  EXPECT_EQ(msg.message, "This output is not available yet.");
  options.kind = kOutputPrint;
  const SaveEnd print = a.SaveStore(options);
  EXPECT_FALSE(print.failed);
  EXPECT_EQ(print.itemsWritten, 0u);
  EXPECT_TRUE(fs::is_empty(dir_ / "out"));
}

TEST(SavePaths, RelativePathLeavesOutTopFoldersAndTheChosenRoot) {
  StoreReader reader;
  MemoryTree tree;
  const TreeItem root = tree.AddRoot("store", 9);
  const TreeItem top = tree.InsertSorted(root, "Top of Outlook data file", 10);
  const TreeItem nameless = tree.InsertSorted(top, "", 10);
  const TreeItem mail = tree.InsertSorted(nameless, "Mail", 10);
  const TreeItem inbox = tree.InsertSorted(mail, "In/box", 10);
  MemoryProfile profile;
  SavePipeline p(reader, tree, root, profile);
  std::vector<std::string> names;
  EXPECT_EQ(p.RelativePath(inbox, &names), "Mail/In_box/");
  EXPECT_EQ(names, (std::vector<std::string>{"Mail", "In/box"}));
  profile.texts[kFolderRootKey] = "mail";
  EXPECT_EQ(p.RelativePath(inbox), "In_box/");
  profile.texts[kFolderRootKey] = "elsewhere";  // not on the path: no effect
  EXPECT_EQ(p.RelativePath(inbox), "Mail/In_box/");
}

}  // namespace
}  // namespace marrow
