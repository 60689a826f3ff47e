// The item folder rules the samples do not reach. Recipients and attachments
// of every sample message are held against readpst by cli.export_eml_oracle.
#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "content/item_reader.h"
#include "tests/support/heap_builder.h"
#include "tests/support/store_builder.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using test::Buf;
using test::Cat;
using test::LE;
using test::Record;

std::set<std::string> Listing(const fs::path& root, const fs::path& skip) {
  std::set<std::string> out;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
    if (it->path() == skip) it.disable_recursion_pending();
    out.insert(fs::relative(it->path(), root).string());
  }
  return out;
}

class ItemReaderFolder : public test::ScratchDir {};

TEST_F(ItemReaderFolder, AttachmentFilesStayInTheItemFolder) {
  struct Case {
    std::string storedName, name, data;
    bool withData = true, inHeap = false;
  };
  const std::vector<Case> cases = {
      {"../../evil", "../../evil", "climbs out"},
      {std::string("evil\0/../../x", 13), "evil", "text stops at the NUL"},
      {std::string(300, 'a'), std::string(300, 'a'), "too long for a file name"},
      {"..", "..", "the parent itself"},
      {"same.txt", "same.txt", "first of two"},
      {"same.txt", "same.txt", "second of two"},
      {"small.txt", "small.txt", "kept in the attachment's heap", true, true},
      {"nodata.txt", "nodata.txt", "", false},
  };
  // Loose blocks behind one block index leaf, ids 0x100, 0x104 ... in order.
  test::StoreBuilder file(test::Form::Unicode4096, 0x40000);
  std::vector<test::BlockRow> blocks;
  auto add = [&](const Buf& data) {
    const std::uint64_t at = 0x8000 + 0x1000 * blocks.size();
    file.Put(at, data);
    blocks.push_back({0x100 + 4 * blocks.size(), at, static_cast<std::uint16_t>(data.size())});
    return blocks.back().blockId;
  };
  SubnodeLists message;
  std::uint32_t nid = 0x8005;
  for (const Case& c : cases) {
    const std::uint32_t dataNid = nid + 0x1A;  // type 0x1F
    const Buf bytes(c.data.begin(), c.data.end());
    // A property list of the name and the bytes (heap ids 2 << 5 and 3 << 5).
    Buf records = Cat({Record(0x3001, 0x001F, 2 << 5), Record(0x3705, 0x0003, 1)});
    if (c.withData) records = Cat({records, Record(0x3701, 0x0102, c.inHeap ? 3 << 5 : dataNid)});
    const Buf list = test::PropertyList({Utf8ToUtf16(c.storedName), bytes}, {records});
    // A one-level subnode block (wide rows: NodeId, data block, subnode block).
    const Buf children = Cat({{2, 0}, LE(1, 2), LE(0, 4), LE(dataNid, 8), LE(add(bytes), 8), LE(0, 8)});
    message.push_back({nid + 0x20, add(list), add(children)});
    nid += 0x20;
  }
  const fs::path outer = Dir() / "outer", itemDir = outer / "item";
  fs::create_directories(itemDir);
  std::ofstream(outer / "keep.txt") << "untouched";
  const std::set<std::string> before = Listing(Dir(), itemDir);
  file.BlockLeaf(0x4000, blocks);
  file.Roots(0x4200, 0x4000);
  StoreReader reader(Dir().string());
  ASSERT_TRUE(reader.OpenSource(file.Source()));
  ItemReader items(reader, itemDir.string());
  AttachmentFiles attached;
  items.ReadAttachments(message, attached, nullptr);

  EXPECT_EQ(Listing(Dir(), itemDir), before) << "nothing written outside the item folder";
  ASSERT_EQ(attached.size(), cases.size() - 1) << "the attachment without 0x3701 adds nothing";
  std::set<fs::path> paths;
  for (std::size_t i = 0; i < attached.size(); ++i) {
    SCOPED_TRACE(cases[i].data);
    EXPECT_EQ(attached[i].name, cases[i].name);
    EXPECT_EQ(fs::path(attached[i].path).parent_path(), itemDir);
    EXPECT_TRUE(paths.insert(attached[i].path).second) << "a path given twice";
    EXPECT_EQ(test::ReadFile(attached[i].path), cases[i].data);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(itemDir), fs::directory_iterator()),
            static_cast<std::ptrdiff_t>(attached.size()));
  EXPECT_EQ(attached[1].path, (itemDir / "evil").string()) << "a usable name is the file's name";
  EXPECT_TRUE(attached[0].path.ends_with(".Bin") && attached[2].path.ends_with(".Bin") &&
              attached[3].path.ends_with(".Bin"));
}

}  // namespace
}  // namespace marrow
