// The folder rebuild on small stores made here: what the index gives, what
// the scan adds, orphan folders, loops, skip and the retry ladder.
#include <map>

#include <gtest/gtest.h>

#include "store/folder_items.h"
#include "store/memory_tree.h"
#include "store/recovery.h"
#include "store/start_scan.h"
#include "tests/support/heap_builder.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using Buf = std::vector<std::uint8_t>;
using Texts = std::vector<std::string>;
using test::Form;
using test::NodeRow;

// A property list heap with texts and 32-bit numbers, records sorted by tag.
Buf PropertyList(const std::vector<std::pair<std::uint16_t, std::string>>& texts,
                 const std::vector<std::pair<std::uint16_t, std::uint32_t>>& numbers) {
  std::vector<Buf> values;
  std::map<std::uint16_t, Buf> records;
  for (const auto& [tag, text] : texts) {
    values.push_back(test::Wide(text.c_str()));
    records[tag] = test::Record(tag, 0x001F, (1 + values.size()) << 5);
  }
  for (const auto& [tag, value] : numbers) records[tag] = test::Record(tag, 0x0003, value);
  std::vector<Buf> sorted;
  for (const auto& [tag, r] : records) sorted.push_back(r);
  return test::PropertyList(values, sorted);
}

// A small store written block by block. Rows go either into the live
// indexes or onto stray node pages that only the whole-file scan reads.
class Synthetic {
 public:
  explicit Synthetic(Form form) : b_(form, 0x1000) { next_ = Page(16); }

  std::uint64_t Page(unsigned n) const { return std::uint64_t{n} * b_.PageSize(); }

  std::uint64_t Folder(const std::string& name, std::uint32_t count = 0, const std::string& cls = "IPF.Note",
                       bool indexed = true) {
    std::vector<std::pair<std::uint16_t, std::string>> texts;
    if (!name.empty()) texts.emplace_back(0x3001, name);
    if (!cls.empty()) texts.emplace_back(0x3613, cls);
    return AddBlock(PropertyList(texts, {{0x3602, count}}), indexed);
  }
  std::uint64_t Message(bool indexed = true) { return AddBlock(PropertyList({{0x0037, "A subject"}}, {}), indexed); }
  std::uint64_t NotAHeap() { return AddBlock(Buf(40, 0x5A), false); }

  void IndexRow(std::uint32_t id, std::uint64_t data, std::uint32_t parent) { live_.push_back({id, data, 0, parent}); }
  void StrayRow(std::uint32_t id, std::uint64_t data, std::uint32_t parent) { stray_.push_back({id, data, 0, parent}); }

  Buf Bytes() {
    std::sort(live_.begin(), live_.end(), [](const NodeRow& a, const NodeRow& b) { return a.nodeId < b.nodeId; });
    std::sort(blocks_.begin(), blocks_.end(),
              [](const test::BlockRow& a, const test::BlockRow& b) { return a.blockId < b.blockId; });
    b_.NodeLeaf(Page(4), live_);
    b_.BlockLeaf(Page(5), blocks_);
    // Stray rows sit on leaves no branch points at, eight to a page.
    for (std::size_t i = 0; i < stray_.size(); i += 8) {
      b_.NodeLeaf(Page(6 + static_cast<unsigned>(i / 8)),
                  std::vector<NodeRow>(stray_.begin() + i, stray_.begin() + std::min(stray_.size(), i + 8)));
    }
    b_.Roots(Page(4), Page(5));
    b_.CryptByte(0);
    Buf bytes = b_.Bytes();
    bytes.resize((bytes.size() + 0xFFFF) / 0x10000 * 0x10000, 0);
    return bytes;
  }

 private:
  std::uint64_t AddBlock(const Buf& data, bool indexed) {
    const std::uint64_t id = nextId_;
    nextId_ += 8;
    const std::uint64_t at = next_;
    next_ = b_.Block(at, id, data);
    if (indexed) blocks_.push_back({id, at, static_cast<std::uint16_t>(data.size())});
    return id;
  }

  test::StoreBuilder b_;
  std::uint64_t next_;
  std::uint64_t nextId_ = 0x100;
  std::vector<NodeRow> live_, stray_;
  std::vector<test::BlockRow> blocks_;
};

// A recovery from memory, with every folder the tree shows by its path.
struct Result : test::Recovered {
  explicit Result(test::Recovered base) : test::Recovered(std::move(base)) {}

  std::map<std::string, const FolderRecord*> byPath;

  Texts Shown() const {
    Texts out;
    for (const auto& [path, row] : byPath) out.push_back(path);
    return out;
  }
  const FolderRecord& At(const std::string& path) const { return *byPath.at(path); }
  const MemoryTree::Node& Node(const std::string& path) const { return *tree.Find(At(path).treeItem); }
  std::size_t Items(const std::string& path, bool lost) {
    std::size_t n = 0;
    ForEachFolderItem(*reader, state, At(path).nodeId, 1, [&](const FolderItem& i) { n += i.isLost == lost; });
    return n;
  }
};

Result Recover(const Buf& bytes, bool raw = false, ProgressSink* sink = nullptr, bool retryPass = false) {
  auto reader = std::make_unique<StoreReader>();
  if (sink != nullptr) reader->SetProgressSink(sink);
  reader->OpenSource(std::make_unique<MemorySource>(bytes));
  Result r(test::RecoverWith(std::move(reader), retryPass, raw));
  EXPECT_EQ(r.outcome.runs, 1);
  for (const auto& [path, item] : r.Paths()) {
    r.byPath[path] = r.RowOf(item);
    EXPECT_NE(r.byPath[path], nullptr) << path;
  }
  return r;
}

// The store most cases share: a live tree, and what the scan alone can see.
//   live:  Top (0x8022) > Inbox (0x8042, 2 messages) and Sent Items
//          (0x8082), under a nameless 0x122 root; no Deleted Items.
//   stray: an old folder, a row for a known folder, a root-parented folder,
//          a self-parented one, a nameless one; lost messages of Inbox, two
//          of one vanished folder, one with parent 0, one whose block is no heap.
Buf SharedStore(Form form) {
  Synthetic s(form);
  s.IndexRow(0x122, s.Folder(""), 0x122);
  s.IndexRow(0x8022, s.Folder("Top of Personal Folders"), 0x122);
  s.IndexRow(0x8042, s.Folder("Inbox", 2), 0x8022);
  s.IndexRow(0x8082, s.Folder("Sent Items"), 0x8022);
  const std::uint64_t inboxMail1 = s.Message(), inboxMail2 = s.Message();
  s.IndexRow(0x200004, inboxMail1, 0x8042);
  s.IndexRow(0x200024, inboxMail2, 0x8042);

  s.StrayRow(0x80A2, s.Folder("Old Folder", 0, "IPF.Contact", false), 0x8022);
  s.StrayRow(0x8042, s.Folder("Inbox (old copy)", 0, "IPF.Note", false),
             0x8022);                                                  // known id: dropped
  s.StrayRow(0x80C2, s.Folder("Under Root", 0, "", false), 0x122);     // becomes a root
  s.StrayRow(0x80E2, s.Folder("Self", 0, "IPF.Note", false), 0x80E2);  // own parent: dropped
  s.StrayRow(0x8102, s.Folder("", 0, "IPF.Note", false), 0x8022);      // no name: dropped
  s.StrayRow(0x200044, s.Message(false), 0x8042);                      // a deleted message of Inbox
  s.StrayRow(0x200004, inboxMail1, 0x8042);                            // an old copy of a live one: not listed twice
  s.StrayRow(0x200064, s.Message(false), 0x9002);                      // two messages of a folder that is gone:
  s.StrayRow(0x200084, s.Message(false), 0x9002);                      //   one orphan folder
  s.StrayRow(0x2000A4, s.Message(false), 0);                           // parent 0: no orphan folder
  s.StrayRow(0x2000C4, s.NotAHeap(), 0x9022);                          // not a heap: no orphan, no gap in numbering
  s.StrayRow(0x2000E4, s.Message(false), 0x9042);                      // a second vanished folder
  s.StrayRow(0x200104, s.Message(false), 0x80A2);                      // a message of the old folder
  return s.Bytes();
}

const Texts kSharedTree = {"/Orphan Folder(s)",
                           "/Orphan Folder(s)/Orphan Folder_1",
                           "/Orphan Folder(s)/Orphan Folder_2",
                           "/Top of Personal Folders",
                           "/Top of Personal Folders/Deleted Items",
                           "/Top of Personal Folders/Inbox",
                           "/Top of Personal Folders/Old Folder",
                           "/Top of Personal Folders/Sent Items",
                           "/Under Root"};

// Records what the driver shows, and presses Skip (or Cancel) once the scan is offered.
class SkippingSink : public ProgressSink {
 public:
  void SetStepLine(const std::string& t) override { steps.push_back(t); }
  void SetExplainLine(const std::string& t) override { explains.push_back(t); }
  void SetButtonText(const std::string& t) override { buttons.push_back(t); }
  void SetSkipMode(bool on) override { skip = on; }
  bool IsCancelled() override {
    return (pressAtScan && skip) || (cancelAtScan && !steps.empty() && steps.back() == "Step 2 of 6");
  }
  bool pressAtScan = false, cancelAtScan = false, skip = false;
  std::vector<std::string> steps, explains, buttons;
};

class EveryForm : public ::testing::TestWithParam<Form> {};
INSTANTIATE_TEST_SUITE_P(Forms, EveryForm, ::testing::Values(Form::Ansi512, Form::Unicode512, Form::Unicode4096),
                         ::testing::PrintToStringParamName());

TEST_P(EveryForm, IndexAndScanMergeIntoOneTree) {
  Result r = Recover(SharedStore(GetParam()));
  EXPECT_EQ(r.Shown(), kSharedTree);
  const std::string top = "/Top of Personal Folders", orphans = "/Orphan Folder(s)";

  // Index rows are not lost; scanned and made-up rows are, but Deleted Items,
  // made up in the first step for want of one in the index.
  EXPECT_FALSE(r.At(top + "/Inbox").isLost);
  EXPECT_TRUE(r.At(top + "/Old Folder").isLost);
  EXPECT_EQ(r.At(top + "/Old Folder").containerClass, "IPF.Contact");
  EXPECT_TRUE(r.At("/Under Root").isLost);
  EXPECT_EQ(r.At("/Under Root").parentId, 0u);
  EXPECT_EQ(r.At("/Under Root").containerClass, "IPF.NOTE");
  EXPECT_EQ(r.At(top + "/Deleted Items").nodeId, kDeletedItemsId);
  EXPECT_FALSE(r.At(top + "/Deleted Items").isLost);

  // The orphans stand for the vanished parents, in the order the scan met them.
  EXPECT_EQ(r.At(orphans).nodeId, kOrphanParentId);
  EXPECT_EQ(r.At(orphans + "/Orphan Folder_1").nodeId, 0x9002u);
  EXPECT_EQ(r.At(orphans + "/Orphan Folder_2").nodeId, 0x9042u);
  EXPECT_EQ(r.At(orphans + "/Orphan Folder_1").itemCount, 10u);

  // Items: index messages first, then lost rows not yet shown.
  EXPECT_EQ(r.Items(top + "/Inbox", false), 2u);
  EXPECT_EQ(r.Items(top + "/Inbox", true), 1u);
  EXPECT_EQ(r.Items(orphans + "/Orphan Folder_1", true), 2u);
  EXPECT_EQ(r.Items(orphans + "/Orphan Folder_2", true), 1u);
  // A scanned folder without a count is counted 1 when the scan saw its mail.
  EXPECT_EQ(r.At(top + "/Old Folder").itemCount, 1u);
  EXPECT_EQ(r.Items(top + "/Old Folder", true), 1u);

  // Bold for a count, expanded down to the top folder, an icon by class.
  EXPECT_TRUE(r.Node(top + "/Inbox").bold);
  EXPECT_FALSE(r.Node(top + "/Sent Items").bold);
  EXPECT_TRUE(r.Node(top).expanded);
  EXPECT_EQ(r.Node(top + "/Inbox").image, 10);
  EXPECT_EQ(r.Node(top + "/Old Folder").image, 11);
}

TEST_P(EveryForm, RawScanListsEveryScannedMessageInOneFolder) {
  Result r = Recover(SharedStore(GetParam()), true);
  ASSERT_EQ(r.Shown(), Texts{"/All Emails"});
  EXPECT_EQ(r.At("/All Emails").nodeId, kOrphanParentId);
  EXPECT_TRUE(r.At("/All Emails").isLost);
  // Every message row the scan met, once per data block: the live leaf is a
  // node page too, so its two rows count with the nine stray ones, of which
  // one repeats a live block.
  EXPECT_EQ(r.Items("/All Emails", true), 9u);
  EXPECT_EQ(r.Items("/All Emails", false), 0u);
}

TEST(Recovery, NothingUsableMakesUpNoStandardFolders) {
  Synthetic s(Form::Unicode512);
  s.IndexRow(0x8022, s.Folder(""), 0x122);  // a folder without a name
  s.IndexRow(0x200004, s.Message(), 0x8022);
  const Buf bytes = s.Bytes();
  // The first step alone (the scan cancelled): no rows, so no made-up ones.
  SkippingSink cancel;
  cancel.cancelAtScan = true;
  const Result first = Recover(bytes, false, &cancel);
  EXPECT_TRUE(first.state.folders.empty());
  EXPECT_EQ(first.tree.FirstChild(first.root), 0u);
  // The whole run: the message's folder has no name, so it is an orphan's.
  Result all = Recover(bytes);
  EXPECT_EQ(all.Shown(), (Texts{"/Orphan Folder(s)", "/Orphan Folder(s)/Orphan Folder_1"}));
  EXPECT_EQ(all.Items("/Orphan Folder(s)/Orphan Folder_1", false), 1u);
}

TEST(Recovery, LoopsStayOutOfTheTreeAndTopOfDataFileIsExpandedWithItsAncestors) {
  Synthetic s(Form::Unicode512);
  s.IndexRow(0x8022, s.Folder("Outer"), 0);
  s.IndexRow(0x8042, s.Folder("Middle"), 0x8022);
  s.IndexRow(0x8062, s.Folder("Top of Outlook data file"), 0x8042);
  s.IndexRow(0x8082, s.Folder("Inner"), 0x8062);
  s.IndexRow(0x80A2, s.Folder("Elsewhere"), 0);
  s.IndexRow(0x80C2, s.Folder("Elsewhere child"), 0x80A2);
  s.IndexRow(0x80E2, s.Folder("Loop A"), 0x8102);
  s.IndexRow(0x8102, s.Folder("Loop B"), 0x80E2);
  s.IndexRow(0x8122, s.Folder("Under the loop"), 0x80E2);
  s.IndexRow(0x8142, s.Folder("Self"), 0x8142);
  const Result r = Recover(s.Bytes());
  const std::string top = "/Outer/Middle/Top of Outlook data file";
  EXPECT_EQ(r.Shown(),
            (Texts{"/Elsewhere", "/Elsewhere/Elsewhere child", "/Outer", "/Outer/Middle", top, top + "/Inner"}));
  EXPECT_EQ(r.state.folders.size(), 10u) << "the rows of the loop are kept, without tree items";
  for (const std::string& open : Texts{"/Outer", "/Outer/Middle", top}) EXPECT_TRUE(r.Node(open).expanded) << open;
  // A folder is expanded when a child is put under it, so only leaves stay closed.
  EXPECT_FALSE(r.Node(top + "/Inner").expanded);
  EXPECT_FALSE(r.Node("/Elsewhere/Elsewhere child").expanded);
}

TEST(Recovery, RepeatedIdsCannotBlowUpTheTree) {
  // Rows that repeat one id (a forged snapshot, a damaged index) put every
  // child under every root: 500 roots x 500 children would be 250,500
  // items. The fill stops at four items a row (and a little more).
  StoreReader reader;
  RecoveryState state;
  for (int i = 0; i < 500; ++i) state.folders.push_back({"Top", "IPF.Note", kTopOfFoldersId, 0, 0});
  for (int i = 0; i < 500; ++i) state.folders.push_back({"Child", "IPF.Note", 0x8042, kTopOfFoldersId, 0});
  state.folders.push_back({"Deleted Items", "IPF.Note", kDeletedItemsId, 0, 0});
  MemoryTree tree;
  const TreeItem root = tree.AddRoot("x", 9);
  FolderRebuild(reader, state, tree, root).BuildTreeFromRows();
  std::size_t items = 0;
  tree.ForEachBelow(root, [&](TreeItem, int) { ++items; });
  EXPECT_EQ(items, 4 * 1001u + 1024);
  EXPECT_NE(tree.FirstChild(tree.FirstChild(root)), 0u) << "the first root still got its children";
}

TEST(Recovery, SkipDuringTheScanKeepsTheIndexTree) {
  const Buf bytes = SharedStore(Form::Unicode512);
  SkippingSink sink;
  sink.pressAtScan = true;
  const Result r = Recover(bytes, false, &sink);
  EXPECT_EQ(r.Shown(), (Texts{"/Top of Personal Folders", "/Top of Personal Folders/Deleted Items",
                              "/Top of Personal Folders/Inbox", "/Top of Personal Folders/Sent Items"}));
  EXPECT_EQ(sink.buttons, (Texts{"Skip", "Cancel"}));
  EXPECT_FALSE(sink.skip);
  ASSERT_FALSE(sink.explains.empty());
  EXPECT_EQ(sink.explains.front(),
            "Searching for Lost/Deleted folder(s) and item(s). If you do not want to recover "
            "lost/deleted data then you can skip this process.");

  // A retry run offers no Skip, and goes through all six steps.
  SkippingSink retry;
  const Result again = Recover(bytes, false, &retry, true);
  EXPECT_EQ(retry.explains.front(), "Searching for Lost/Deleted folder(s) and item(s).");
  EXPECT_EQ(retry.steps, (Texts{"Step 1 of 6...", "Step 2 of 6", "Step 3 of 6...", "Step 4 of 6...", "Step 5 of 6...",
                                "Step 6 of 6...", ""}));
  EXPECT_EQ(again.Shown(), kSharedTree);
}

TEST(Recovery, AdvanceModeRunsTwiceAtMostAndUnopenableFilesReport) {
  const test::TempFolder dir("modes");
  ScanRequest request;
  request.sourcePath = dir.Path("no-such-store.ost");
  const test::Recovered missing = test::ScanPath(request);
  EXPECT_FALSE(missing.outcome.opened);
  EXPECT_EQ(missing.outcome.errorText, "Unable to open sorce file");

  // An empty file: nothing in either form. Each run's reader holds the file's lock while it lives.
  request.sourcePath = dir.Write("empty.ost", Buf(4, 0));
  const std::pair<int, int> cases[] = {{kAdvanceScan, 2}, {kRawScan, 2}, {kQuickScan, 6}, {7, 0}};  // 7: no mode
  for (const auto& [mode, runs] : cases) {
    request.mode = mode;
    EXPECT_EQ(test::ScanPath(request).outcome.runs, runs) << "mode " << mode;
  }
}

TEST(FolderTree, IconsAndSortedInsert) {
  EXPECT_EQ(IconForClass("ipf.note.x"), 10);
  EXPECT_EQ(IconForClass("IPF.Configuration"), 10);
  EXPECT_EQ(IconForClass("IPF.TASK IPF.NOTE"), 10) << "the first hit in the table's order wins";

  MemoryTree tree;
  const TreeItem top = tree.AddRoot("top", 9);
  for (const char* name : {"beta", "Alpha", "gamma", "alpha", "Beta"}) tree.InsertSorted(top, name, 10);
  Texts order;
  for (TreeItem i = tree.FirstChild(top); i != 0; i = tree.NextSibling(i)) order.push_back(tree.Find(i)->text);
  EXPECT_EQ(order, (Texts{"Alpha", "alpha", "beta", "Beta", "gamma"}));
  const TreeItem child = tree.InsertSorted(tree.FirstChild(top), "child", 10);
  tree.DeleteItem(tree.FirstChild(top));
  EXPECT_EQ(tree.Find(child), nullptr);
  EXPECT_EQ(tree.InsertSorted(child, "orphan", 10), 0u);
}

}  // namespace
}  // namespace marrow
