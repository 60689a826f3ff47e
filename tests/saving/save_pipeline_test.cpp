// The save walk: folder paths, numbering with gaps, the store's own folder,
// MBOX files per folder, lost-item modes, and names that must not escape.
#include <filesystem>
#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "saving/mbox_writer.h"
#include "saving/save_all_stores.h"
#include "saving/save_pipeline.h"
#include "store/memory_tree.h"
#include "store/recovery_state.h"
#include "store/start_scan.h"
#include "store/store_reader.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

std::set<std::string> Names(const fs::path& dir) {
  std::set<std::string> names;
  for (const auto& e : fs::directory_iterator(dir)) names.insert(e.path().filename().string());
  return names;
}

std::vector<FolderItem> ItemsOf(StoreReader& reader, const RecoveryState& state, const std::string& folder) {
  std::vector<FolderItem> items;
  for (const FolderRecord& f : state.folders) {
    if (f.name == folder)
      ForEachFolderItem(reader, state, f.nodeId, 1, [&](const FolderItem& i) { items.push_back(i); });
  }
  return items;
}

class SaveWalk : public test::ScratchDir {
 protected:
  void SetUp() override { fs::create_directories(dir_ / "out"); }

  // Recovers a copy of the bundled sample into `tree`, everything checked.
  // `folder` keeps copies of one name apart: each reader locks its file.
  TreeItem Recover(StoreReader& reader, RecoveryState& state, MemoryTree& tree, const std::string& folder = ".") {
    fs::create_directories(dir_ / folder);
    const fs::path copy = dir_ / folder / "Sample.ost";
    fs::copy_file(fs::path(MARROW_SOURCE_DIR) / "samples/aspose_SampleOstFile.ost", copy,
                  fs::copy_options::overwrite_existing);
    const TreeItem root = tree.AddRoot(copy.string(), 9);
    ScanRequest request;
    request.sourcePath = copy.string();
    EXPECT_TRUE(StartScan(reader, state, tree, root, request).opened);
    tree.SetCheckedBelow(root, true);
    return root;
  }

  // A stand-in for the item reader: one small message per item, its subject
  // the node id; `failOn` gives no file for that node.
  ItemConversion FakeConversion(std::uint64_t failOn = 0) {
    return [this, failOn](const FolderItem& item, const SaveFilter*, const ItemWants&) {
      ConvertedItem c;
      c.header.typeText = "EMAIL";
      c.header.subject = std::to_string(item.nodeId);
      c.fromText = item.isLost ? "lost" : "live";
      c.emlPath = (dir_ / (c.header.subject + ".src")).string();
      if (item.nodeId != failOn) std::ofstream(c.emlPath) << "Subject: " << c.header.subject << "\r\n\r\nbody\r\n";
      return c;
    };
  }

  SaveOptions Options(OutputKind kind) const {
    SaveOptions options;
    options.kind = kind;
    options.destinationPath = (dir_ / "out").string();
    return options;
  }

  SaveEnd Save(StoreReader& reader, const RecoveryState& state, MemoryTree& tree, TreeItem root,
               const MemoryProfile& profile, OutputKind kind, std::uint64_t failOn = 0) {
    SavePipeline pipeline(reader, state, tree, root, profile);
    pipeline.SetConversion(FakeConversion(failOn));
    return pipeline.SaveStore(Options(kind));
  }

  const fs::path& dir_ = Dir();
};

TEST_F(SaveWalk, EmlAndMboxFilesPerFolderUnderTheStoresOwnFolder) {
  StoreReader reader;
  RecoveryState state;
  MemoryTree tree;
  const TreeItem root = Recover(reader, state, tree);
  MemoryProfile profile;
  // The second item of Inbox/sub1 fails: its number stays unused.
  const std::uint64_t failing = ItemsOf(reader, state, "sub1").at(1).nodeId;
  const SaveEnd end = Save(reader, state, tree, root, profile, kOutputEml, failing);
  ASSERT_FALSE(end.failed) << end.message;
  EXPECT_EQ(end.destination, (dir_ / "out" / "Sample.ost").string() + "/");
  // The top folder "IPM_SUBTREE" is left out of every path; the mailbox root is not a top folder.
  const fs::path inbox = dir_ / "out/Sample.ost/Inbox";
  EXPECT_TRUE(fs::is_regular_file(inbox / "1.eml"));
  EXPECT_TRUE(fs::is_regular_file(inbox / "sub1/1.eml"));
  EXPECT_FALSE(fs::exists(inbox / "sub1/2.eml")) << "a failed item leaves a gap";
  EXPECT_TRUE(fs::is_regular_file(inbox / "sub1/3.eml"));
  EXPECT_TRUE(fs::is_directory(dir_ / "out/Sample.ost/Root - Mailbox/Finder")) << "empty, made";
  // 102 items listed in the tree (92 in the index, 10 lost), one failed.
  EXPECT_EQ(end.itemsWritten, 101u);

  // MBOX: one file per folder inside its folder, even an empty one.
  const SaveEnd mbox = Save(reader, state, tree, root, profile, kOutputMbox);
  ASSERT_FALSE(mbox.failed) << mbox.message;
  const std::string text = test::ReadFile(fs::path(mbox.destination) / "Inbox/sub2/sub2.MBOX");
  std::size_t messages = 0;
  for (std::size_t at = text.find(MboxWriter::kSeparator); at != std::string::npos;
       at = text.find(MboxWriter::kSeparator, at + 1))
    ++messages;
  EXPECT_EQ(messages, 31u);
  EXPECT_EQ(fs::file_size(fs::path(mbox.destination) / "Root - Mailbox/Finder/Finder.MBOX"), 0u);
}

TEST_F(SaveWalk, LostItemModesAndCheckMarks) {
  StoreReader reader;
  RecoveryState state;
  MemoryTree tree;
  const TreeItem root = Recover(reader, state, tree);
  for (const auto& [mode, written] : {std::pair{1, 102u}, {2, 92u}, {3, 10u}}) {
    MemoryProfile profile;
    profile.ints[kSaveDeletedKey] = mode;
    EXPECT_EQ(Save(reader, state, tree, root, profile, kOutputEml).itemsWritten, written) << mode;
  }
  // Only checked folders are saved; a checked child of an unchecked parent
  // keeps its full path.
  tree.SetCheckedBelow(root, false);
  for (const FolderRecord& f : state.folders) {
    if (f.name == "sub2") tree.SetChecked(f.treeItem, true);
  }
  const SaveEnd end = Save(reader, state, tree, root, MemoryProfile(), kOutputEml);
  EXPECT_EQ(end.itemsWritten, 31u);
  EXPECT_TRUE(fs::is_regular_file(fs::path(end.destination) / "Inbox/sub2/31.eml"));
  EXPECT_FALSE(fs::exists(fs::path(end.destination) / "Inbox/1.eml"));
}

TEST_F(SaveWalk, HostileFolderNamesStayInsideTheDestination) {
  StoreReader reader;
  RecoveryState state;
  // The store's folder takes the file name alone; no file is behind it.
  reader.OpenSource(nullptr, (dir_ / "../evil.ost").string());
  MemoryTree tree;
  const TreeItem root = tree.AddRoot("store", 9);
  const std::vector<std::string> names = {"..", "../../escape", std::string("nul\0here", 8),
                                          ".",  "a:b*c?d",      std::string(300, 'x')};
  for (std::size_t i = 0; i < names.size(); ++i) {
    const TreeItem item = tree.InsertSorted(root, names[i], 10);
    tree.SetChecked(item, true);
    state.folders.push_back({names[i], "IPF.Note", 0x8000 + 0x20 * i + 2, 0, 0, item});
  }
  const MemoryProfile profile;
  const SaveEnd end = Save(reader, state, tree, root, profile, kOutputEml);
  // The 300-character name makes a path too long: the walk ends with the text.
  EXPECT_TRUE(end.failed);
  EXPECT_TRUE(
      end.message.starts_with("The provided path is too long to create\nPlease provide different destination path\n"));
  EXPECT_EQ(Names(dir_ / "out/evil.ost"), (std::set<std::string>{"_", ".._.._escape", "nul_here", "a_b_c_d"}));
  EXPECT_EQ(Names(dir_), std::set<std::string>{"out"}) << "nothing beside the destination";

  // An MBOX file is named by the folder's own label: one with "/" fails to
  // open and ends the walk, without writing anywhere.
  EXPECT_TRUE(Save(reader, state, tree, root, profile, kOutputMbox).failed);
  EXPECT_EQ(Names(dir_), std::set<std::string>{"out"});
}

// The writer seam: a writer receives each saved folder, then its items in
// walk order, numbered from 1 with the failed item's number left unused,
// and is asked once per item what it wants besides the MIME file.
TEST_F(SaveWalk, AWriterReceivesTheFoldersAndNumberedItemsOfTheWalk) {
  StoreReader reader;
  RecoveryState state;
  MemoryTree tree;
  const TreeItem root = Recover(reader, state, tree);
  tree.SetCheckedBelow(root, false);
  for (const FolderRecord& f : state.folders) {
    if (f.name == "sub1" || f.name == "sub2") tree.SetChecked(f.treeItem, true);
  }
  struct Recorder : ItemWriter {
    std::vector<std::string> events;
    ItemWants Wants() const override { return {true}; }
    bool BeginFolder(const std::string& path, const std::string& name, std::string&) override {
      events.push_back("begin " + path + " " + name);
      return true;
    }
    bool WriteItem(const ConvertedItem& item, const ItemPlace& place) override {
      events.push_back(place.relFolder + std::to_string(place.number) + " " + item.header.subject);
      return place.folderPath.ends_with(place.relFolder);
    }
    void EndRun() override { events.push_back("end"); }
  } writer;
  MemoryProfile profile;
  SavePipeline pipeline(reader, state, tree, root, profile);
  const std::uint64_t failOn = ItemsOf(reader, state, "sub1").at(1).nodeId;
  const ItemConversion fake = FakeConversion(failOn);
  int wanted = 0;
  pipeline.SetConversion([&](const FolderItem& item, const SaveFilter* filter, const ItemWants& wants) {
    wanted += wants.propertyDump;
    return fake(item, filter, wants);
  });
  pipeline.UseWriter(&writer);
  const SaveEnd end = pipeline.SaveStore(Options(kOutputEml));
  ASSERT_FALSE(end.failed) << end.message;

  std::vector<std::string> expected;
  std::size_t items = 0;
  for (const auto& [name, rel] : {std::pair{"sub1", "Inbox/sub1/"}, {"sub2", "Inbox/sub2/"}}) {
    expected.push_back("begin " + end.destination + rel + " " + name);
    std::uint32_t number = 0;
    for (const FolderItem& item : ItemsOf(reader, state, name)) {
      ++number;
      ++items;
      if (item.nodeId != failOn) expected.push_back(rel + std::to_string(number) + " " + std::to_string(item.nodeId));
    }
  }
  expected.push_back("end");
  EXPECT_EQ(writer.events, expected);
  EXPECT_EQ(end.itemsWritten, items - 1);
  EXPECT_EQ(wanted, static_cast<int>(items));
  EXPECT_TRUE(Names(dir_ / "out/Sample.ost/Inbox").count("sub1")) << "the folders are made for the writer";
}

// Items chosen in a list: numbered per folder in the order chosen, under the
// destination itself, with no filter and no lost-item text.
TEST_F(SaveWalk, ChosenItemsNumberedPerFolderInTheOrderChosen) {
  StoreReader reader;
  RecoveryState state;
  MemoryTree tree;
  const TreeItem root = Recover(reader, state, tree);
  const std::vector<FolderItem> inbox = ItemsOf(reader, state, "Inbox");
  const std::vector<FolderItem> sub1 = ItemsOf(reader, state, "sub1");
  ASSERT_GE(inbox.size(), 2u);
  ASSERT_GE(sub1.size(), 2u);
  auto chosen = [](const std::string& folder, const FolderItem& i) {
    return ChosenItem{folder, i.dataBlock, i.nodeId, i.subnodeBlock};
  };
  MemoryProfile profile;
  SavePipeline pipeline(reader, state, tree, root, profile);
  std::vector<std::uint64_t> order;
  const ItemConversion fake = FakeConversion();
  pipeline.SetConversion([&](const FolderItem& item, const SaveFilter* filter, const ItemWants& wants) {
    EXPECT_EQ(filter->subjectInclude, kFilterOff) << "no filter in a run over chosen items";
    order.push_back(item.nodeId);
    return fake(item, filter, wants);
  });
  const SaveEnd end = pipeline.SaveChosenItems({chosen("Inbox/sub1/", sub1[1]), chosen("Inbox/", inbox[0]),
                                                chosen("Inbox/sub1/", sub1[0]), chosen("Inbox/", inbox[1])},
                                               (dir_ / "out").string(), kOutputEml);
  ASSERT_FALSE(end.failed) << end.message;
  EXPECT_EQ(end.destination, (dir_ / "out").string() + "/") << "no folder of the store's own";
  EXPECT_EQ(end.itemsWritten, 4u);
  // Folders in first-seen order, items in the order chosen inside each.
  EXPECT_EQ(order, (std::vector<std::uint64_t>{sub1[1].nodeId, sub1[0].nodeId, inbox[0].nodeId, inbox[1].nodeId}));
  auto subjectOf = [](const FolderItem& i) { return "Subject: " + std::to_string(i.nodeId) + "\r\n"; };
  EXPECT_TRUE(test::ReadFile(dir_ / "out/Inbox/sub1/1.eml").starts_with(subjectOf(sub1[1])));
  EXPECT_TRUE(test::ReadFile(dir_ / "out/Inbox/sub1/2.eml").starts_with(subjectOf(sub1[0])));
  EXPECT_TRUE(test::ReadFile(dir_ / "out/Inbox/2.eml").starts_with(subjectOf(inbox[1])));
  EXPECT_EQ(pipeline.Run().saveAsCode, 3u);
  EXPECT_EQ(pipeline.Run().totalInFolder, 0u) << "both go back at the end";
}

// A run over all stores: stores with a checked folder in list order, two of
// one file name in two folders, the pending ones scanned first, and the
// routes this build cannot write yet refused without writing.
TEST_F(SaveWalk, AllStoresInOrderWithTheirOwnFolders) {
  StoreReader first, second, unchecked, pending;
  RecoveryState firstState, secondState, uncheckedState, pendingState;
  MemoryTree firstTree, secondTree, uncheckedTree, pendingTree;
  const TreeItem firstRoot = Recover(first, firstState, firstTree, "a");
  const TreeItem secondRoot = Recover(second, secondState, secondTree, "b");
  const TreeItem uncheckedRoot = Recover(unchecked, uncheckedState, uncheckedTree, "c");
  const TreeItem pendingRoot = Recover(pending, pendingState, pendingTree, "d");
  uncheckedTree.SetCheckedBelow(uncheckedRoot, false);
  MemoryProfile profile;
  SavePipeline a(first, firstState, firstTree, firstRoot, profile),
      b(second, secondState, secondTree, secondRoot, profile),
      c(unchecked, uncheckedState, uncheckedTree, uncheckedRoot, profile),
      d(pending, pendingState, pendingTree, pendingRoot, profile);
  for (SavePipeline* p : {&a, &b, &c, &d}) p->SetConversion(FakeConversion());
  std::vector<std::string> scanned;
  const SaveAllEnd end = SaveAllStores({&a, &c, &b}, Options(kOutputEml), {pending.SourcePath(), "/nowhere/x.ost"},
                                       [&](const std::string& path) -> SavePipeline* {
                                         scanned.push_back(path);
                                         return path == pending.SourcePath() ? &d : nullptr;
                                       });
  EXPECT_FALSE(end.cancelled);
  EXPECT_EQ(end.text, "") << "the caller shows the location";
  ASSERT_EQ(end.stores.size(), 3u) << "the store with nothing checked is passed over";
  EXPECT_EQ(end.stores[0].destination, (dir_ / "out/Sample.ost").string() + "/");
  EXPECT_EQ(end.stores[1].destination, (dir_ / "out/Sample.ost(1)").string() + "/");
  EXPECT_EQ(end.stores[2].destination, (dir_ / "out/Sample.ost(2)").string() + "/");
  EXPECT_EQ(scanned, (std::vector<std::string>{pending.SourcePath(), "/nowhere/x.ost"}));

  // The store item alone, checked, counts only when its text is not the path.
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

  // The stop button: the store being saved ends where it is, the stores
  // after it are not started, and the run ends with the stop's text.
  struct StopAfter : ProgressSink {
    int itemsLeft = 5;
    void SetStatusLine(const std::string&) override { --itemsLeft; }
    bool IsCancelled() override { return itemsLeft <= 0; }
  } stop;
  first.SetProgressSink(&stop);
  const SaveAllEnd stopped = SaveAllStores({&a, &b}, Options(kOutputEml));
  EXPECT_TRUE(stopped.cancelled);
  EXPECT_EQ(stopped.text, "Saving process aborted by user.");
  ASSERT_EQ(stopped.stores.size(), 1u);
  EXPECT_EQ(stopped.stores[0].itemsWritten, 5u);
  first.SetProgressSink(nullptr);

  // Outputs whose writers come later fail in words and write nothing; a
  // printed run writes nothing and reports nothing.
  fs::remove_all(dir_ / "out");
  fs::create_directories(dir_ / "out");
  const SaveEnd msg = a.SaveStore(Options(kOutputMsg));
  EXPECT_TRUE(msg.failed);
  EXPECT_EQ(msg.message, "This output is not available yet.");
  const SaveEnd print = a.SaveStore(Options(kOutputPrint));
  EXPECT_FALSE(print.failed);
  EXPECT_EQ(print.itemsWritten, 0u);
  EXPECT_TRUE(fs::is_empty(dir_ / "out"));
}

TEST(SavePaths, RelativePathLeavesOutTopFoldersAndTheChosenRoot) {
  StoreReader reader;
  RecoveryState state;
  MemoryTree tree;
  const TreeItem root = tree.AddRoot("store", 9);
  const TreeItem top = tree.InsertSorted(root, "Top of Outlook data file", 10);
  const TreeItem nameless = tree.InsertSorted(top, "", 10);
  const TreeItem mail = tree.InsertSorted(nameless, "Mail", 10);
  const TreeItem inbox = tree.InsertSorted(mail, "In/box", 10);
  MemoryProfile profile;
  SavePipeline p(reader, state, tree, root, profile);
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
