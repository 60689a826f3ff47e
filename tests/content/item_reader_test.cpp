// Recipients and attachments of every sample message against what pffexport
// writes for it (tests/data/oracle/item_parts.tsv), and the item folder rules
// the samples do not reach.
#include <algorithm>
#include <fstream>
#include <functional>
#include <set>

#include <gtest/gtest.h>

#include "content/item_reader.h"
#include "content/property_values.h"
#include "store/block_codec.h"
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

struct Recipient {
  std::string type, name, addressType, address;  // type: To, CC or BCC
};
struct FilePart {
  std::string name;  // "-" when pffexport finds no file name
  std::string bytes, sha256;
  auto operator<=>(const FilePart&) const = default;
};
struct OracleItem {
  std::string kind;  // email, appointment, meeting, contact ...
  std::vector<Recipient> recipients;
  std::vector<FilePart> files;
  std::vector<std::string> embedded;  // message:Message, message:Appointment
};

// store -> message NodeId -> what pffexport writes.
std::map<std::string, std::map<std::uint32_t, OracleItem>> LoadOracle() {
  std::map<std::string, std::map<std::uint32_t, OracleItem>> oracle;
  for (const auto& f : test::OracleRows("item_parts.tsv", 10)) {
    OracleItem& item = oracle[f[0]][static_cast<std::uint32_t>(std::stoul(f[1], nullptr, 16))];
    if (f[2] == "item") item.kind = f[4];
    if (f[2] == "recipient") item.recipients.push_back({f[4], f[5], f[6], f[7]});
    if (f[2] == "attachment" && f[4] == "file") item.files.push_back({f[5], f[8], f[9]});
    if (f[2] == "attachment" && f[4] != "file") item.embedded.push_back(f[4]);
  }
  return oracle;
}

// --- Differences with pffexport, by cause, and how many each store has --------

constexpr const char* kExSmtp = "EX recipient: the row's SMTP address with its line end, pffexport the DN";
constexpr const char* kRowsInSubnode = "recipient rows in a subnode: not read (messages)";
constexpr const char* kNotJoined = "recipient table over too many blocks to join: not read (messages)";
constexpr const char* kFirstBlockOnly = "recipient table of compressed blocks: first block only, not read (messages)";
constexpr const char* kCompressedSubnodes = "compressed subnode block: no subnodes (messages)";
constexpr const char* kDisplayName = "attachment named by its display name, pffexport by its file name";
constexpr const char* kMisdecoded = "attachment heap decoded with the wrong method: lost";
constexpr const char* kMeeting = "meeting: pffexport writes no recipients or attachments (messages)";

// How many of each difference every store has, with why
// (tests/data/oracle/item_parts_verdicts.tsv).

// For the meetings, readpst -S writes the organiser as To and Invitation.pdf
// (same size and SHA-256) for these two; we give the same.
const std::set<std::uint32_t> kMeetingsWithInvitation = {0x2147C4, 0x214A24};
const FilePart kInvitation = {"Invitation.pdf", "10642",
                              "6821f4ed901cc71760fda4444c875c7f2c53866139d1e4eec7a277bd9545b141"};

// Why the store layer cannot give the item reader a message's recipient
// table; "" when it can.
std::string TableFault(StoreReader& reader, const SubnodeLists& subnodes) {
  Buf table;
  std::vector<HeapSegment> segments;
  std::uint64_t child = 0, info = 0, end = 0;
  if (!reader.ReadSubnodeHeap(0x692, subnodes, table, segments, child) || table.size() < 8) return "";
  if (table[0] == 0x01 && table[2] != 0xEC) return kNotJoined;  // an index block, not a heap
  std::uint64_t stored = 0;
  for (const HeapSegment& s : segments) stored += s.length;
  if (segments.size() > 1 && table.size() != stored) return kFirstBlockOnly;
  reader.ResolveHeapId(table, ReadU16(table, 0), ReadU32(table, 4), info, end, &segments);
  if (info != 0 && info + 18 <= table.size() && (ReadU32(table, info + 14) & 0x1F) != 0)
    return kRowsInSubnode;  // the row reference is a subnode id
  return "";
}

bool SubnodeBlockCompressed(StoreReader& reader, std::uint64_t subnodeBlock) {
  VisitedSet visited;
  std::uint64_t offset = 0, size = 0;
  return subnodeBlock != 0 && reader.FindBlock(reader.BlockRoot(), subnodeBlock, offset, size, visited) &&
         LooksDeflated(reader.ReadAt(offset, size));
}

// (display name 0x3001, file name 0x3707 else 0x3704 else "-") of every attachment.
std::set<std::pair<std::string, std::string>> AttachmentNames(StoreReader& reader, const SubnodeLists& subnodes) {
  std::set<std::pair<std::string, std::string>> out;
  for (const SubnodeRow& row : subnodes) {
    Buf heap;
    std::vector<HeapSegment> segments;
    std::uint64_t child = 0;
    if (!reader.ReadSubnodeHeap(row.nodeId, subnodes, heap, segments, child)) continue;
    PropertyBag bag;
    reader.ReadPropertyBag(heap, &bag, nullptr, &segments, {}, true, false);
    std::string file = GetString(bag, 0x3707, false);
    if (file.empty()) file = GetString(bag, 0x3704, false);
    out.insert({GetString(bag, 0x3001, false), file.empty() ? "-" : file});
  }
  return out;
}

class ItemReaderSamples : public test::ScratchDir {};

TEST_F(ItemReaderSamples, RecipientsAndAttachmentsAgreeWithPffexport) {
  MARROW_REQUIRE_TESTDATA();
  const auto oracle = LoadOracle();
  ASSERT_GE(oracle.size(), 31u) << "oracle data missing";
  std::map<std::pair<std::string, std::string>, int> seen;
  std::size_t compared = 0, unlisted = 0, sameRecipients = 0, sameFiles = 0, embeddedSeen = 0;
  const fs::path itemDir = Dir() / "item";
  for (const std::string& store : test::AllStores()) {
    SCOPED_TRACE(store);
    auto owned = test::SampleReader(store, Dir().string());
    StoreReader& reader = *owned;
    const auto storeOracle = oracle.find(store);
    for (const auto& [id, node] : test::MessageNodes(reader)) {
      SCOPED_TRACE(::testing::Message() << "message 0x" << std::hex << id);
      SubnodeLists subnodes;
      reader.ReadSubnodeList(node.subnodeBlock, subnodes);
      ItemReader items(reader, itemDir.string());
      items.ClearItemFolder();
      std::string to, cc, bcc;
      std::vector<std::string> all;
      items.ReadRecipients(subnodes, "", to, cc, bcc, all);
      AttachmentFiles attached;
      std::vector<std::string> kinds;
      std::set<std::string> embeddedPaths;
      items.ReadAttachments(subnodes, attached, [&](EmbeddedMessage& m, const std::string& name) {
        EXPECT_TRUE(name.ends_with(".eml")) << name;
        // pffexport shows the exceptions of a recurring appointment as appointments.
        const bool exception = GetString(m.bag, 0x001A, false).starts_with("IPM.OLE.CLASS.{00061055-");
        kinds.push_back(exception ? "message:Appointment" : "message:Message");
        const fs::path path = itemDir / ("embedded" + std::to_string(embeddedPaths.size()));
        return *embeddedPaths.insert(path.string()).first;
      });
      std::vector<FilePart> files;
      for (std::size_t i = 0; i < attached.size(); ++i) {
        if (embeddedPaths.count(attached[i].path)) continue;
        EXPECT_EQ(fs::path(attached[i].path).parent_path(), itemDir);
        files.push_back(
            {attached[i].name, std::to_string(fs::file_size(attached[i].path)), test::FileSha256(attached[i].path)});
      }

      if (storeOracle == oracle.end() || !storeOracle->second.count(id)) {
        EXPECT_TRUE(all.empty() && attached.size() == 0) << "posts and free/busy data have neither";
        ++unlisted;
        continue;
      }
      const OracleItem& want = storeOracle->second.at(id);
      ++compared;
      if (want.kind == "meeting") {
        ++seen[{store, kMeeting}];
        EXPECT_EQ(all, std::vector<std::string>{"Saqib Razzaq<saqib.razzaq@ex2010.local\r\n>"});
        EXPECT_EQ(to, all.empty() ? "" : all[0]);
        EXPECT_EQ(files,
                  kMeetingsWithInvitation.count(id) ? std::vector<FilePart>{kInvitation} : std::vector<FilePart>{});
        continue;
      }
      if (subnodes.empty() && SubnodeBlockCompressed(reader, node.subnodeBlock)) {
        ++seen[{store, kCompressedSubnodes}];
        EXPECT_TRUE(all.empty() && attached.size() == 0);
        continue;
      }

      // Recipients row by row in table order, then the three lists.
      std::vector<std::string> entries;  // pffexport's rows as our entries would show them
      for (const Recipient& r : want.recipients)
        entries.push_back((r.name.empty() ? r.address : r.name) + "<" + (r.address.empty() ? r.name : r.address) + ">");
      if (const std::string fault = TableFault(reader, subnodes); !fault.empty()) {
        ++seen[{store, fault}];
        EXPECT_NE(all, entries) << "read after all: " << fault;
      } else {
        EXPECT_EQ(all.size(), want.recipients.size());
        std::map<std::string, std::string> byType;
        for (std::size_t i = 0; i < all.size() && i < want.recipients.size(); ++i) {
          const Recipient& r = want.recipients[i];
          if (all[i] == entries[i]) {
            ++sameRecipients;
          } else if (r.addressType == "EX") {
            const std::string head = r.name + "<";
            EXPECT_TRUE(all[i].starts_with(head) && all[i].ends_with("\r\n>") &&
                        all[i].find('@', head.size() + 1) < all[i].size())
                << all[i];
            EXPECT_TRUE(r.address.starts_with("/o=") || r.address.starts_with("/O=")) << r.address;
            ++seen[{store, kExSmtp}];
          } else {
            EXPECT_EQ(all[i], entries[i]);
          }
          std::string& list = byType[r.type];
          list += (list.empty() ? "" : ";") + all[i];
        }
        EXPECT_EQ(to, byType["To"]);
        EXPECT_EQ(cc, byType["CC"]);
        EXPECT_EQ(bcc, byType["BCC"]);
      }

      // Embedded messages: as many, of the same kinds.
      std::vector<std::string> wantKinds = want.embedded;
      std::sort(kinds.begin(), kinds.end());
      std::sort(wantKinds.begin(), wantKinds.end());
      EXPECT_EQ(kinds, wantKinds);
      embeddedSeen += kinds.size();

      // Attachment files: same name, size and bytes; else same bytes under another name.
      std::vector<FilePart> theirs = want.files, onlyMine, onlyTheirs;
      std::sort(files.begin(), files.end());
      std::sort(theirs.begin(), theirs.end());
      std::set_difference(files.begin(), files.end(), theirs.begin(), theirs.end(), std::back_inserter(onlyMine));
      std::set_difference(theirs.begin(), theirs.end(), files.begin(), files.end(), std::back_inserter(onlyTheirs));
      sameFiles += files.size() - onlyMine.size();
      const auto names = AttachmentNames(reader, subnodes);
      for (const FilePart& t : onlyTheirs) {
        auto m = std::find_if(onlyMine.begin(), onlyMine.end(),
                              [&](const FilePart& f) { return f.bytes == t.bytes && f.sha256 == t.sha256; });
        if (m != onlyMine.end()) {
          EXPECT_TRUE(names.count({m->name, t.name})) << m->name << " / " << t.name;
          ++seen[{store, kDisplayName}];
          onlyMine.erase(m);
        } else if (store == "pst/unicode/pst2john_2003_high-encryption_quickquick.pst" &&
                   ((id == 0x2002A4 && t.name == "olicon.GIF") || (id == 0x2003C4 && t.name == "yellowbg.gif"))) {
          ++seen[{store, kMisdecoded}];
        } else {
          ADD_FAILURE() << "missing attachment " << t.name << " " << t.bytes << " " << t.sha256;
        }
      }
      for (const FilePart& f : onlyMine) ADD_FAILURE() << "extra attachment " << f.name << " " << f.bytes;
    }
  }
  for (const auto& v : test::OracleRows("item_parts_verdicts.tsv", 4)) {
    EXPECT_EQ(seen[std::make_pair(v[0], v[1])], std::stoi(v[2])) << v[0] << ": " << v[1];
    seen.erase({v[0], v[1]});
  }
  for (const auto& [key, n] : seen) ADD_FAILURE() << key.first << ": " << n << " x " << key.second << " not pinned";
  EXPECT_EQ(compared, 785u) << "every item of item_parts.tsv";
  EXPECT_EQ(unlisted, 8u) << "3 posts and 5 free/busy messages pffexport skips";
  // What is left once the differences above are taken out.
  EXPECT_EQ(sameRecipients, 384u);
  EXPECT_EQ(sameFiles, 928u);
  EXPECT_EQ(embeddedSeen, 25u);
}

// --- Cases the samples do not reach ------------------------------------------

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
