#include "tests/support/test_data.h"

#include <unistd.h>

#include <algorithm>
#include <sstream>

#include "store/recovery.h"

namespace fs = std::filesystem;

namespace marrow::test {

namespace {

// Every test reads times in UTC.
class UtcZone : public ::testing::Environment {
 public:
  void SetUp() override {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }
};
const auto* const kUtcZone = ::testing::AddGlobalTestEnvironment(new UtcZone);

// The field escapes of tests/data/oracle/make_oracle.py.
std::string Unescape(const std::string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '\\' || i + 1 == s.size()) {
      out += s[i];
    } else if (s[++i] == 'x' && i + 2 < s.size()) {
      out += static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += s[i] == 't' ? '\t' : s[i] == 'n' ? '\n' : s[i] == 'r' ? '\r' : s[i];
    }
  }
  return out;
}

}  // namespace

std::string TestDataDir() {
  std::error_code ec;
  return fs::is_directory(MARROW_TESTDATA_DIR, ec) ? std::string(MARROW_TESTDATA_DIR) : std::string();
}

std::string Sample(const std::string& relative) {
  return std::string(MARROW_TESTDATA_DIR) + "/" + relative;
}

std::vector<std::string> AllStores() {
  std::vector<std::string> out;
  const std::string root = TestDataDir();
  if (root.empty()) return out;
  for (const char* dir : {"pst/ansi", "pst/unicode", "ost/unicode512", "ost4k"}) {
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(root + "/" + dir, ec)) {
      const std::string ext = entry.path().extension().string();
      if (ext == ".pst" || ext == ".ost") out.push_back(std::string(dir) + "/" + entry.path().filename().string());
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

std::string MailFixture(const std::string& name) {
  return std::string(MARROW_SOURCE_DIR) + "/tests/mail/data/" + name;
}

std::vector<std::vector<std::string>> OracleRows(const std::string& name, std::size_t fields) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream in(std::string(MARROW_SOURCE_DIR) + "/tests/data/oracle/" + name);
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::vector<std::string> row;
    std::stringstream cells(line);
    for (std::string s; std::getline(cells, s, '\t');) row.push_back(Unescape(s));
    if (fields == 0 || row.size() == fields) rows.push_back(std::move(row));
  }
  return rows;
}

TempFolder::TempFolder(const std::string& tag)
    : dir_(fs::path(::testing::TempDir()) / ("marrow-" + tag + "-" + std::to_string(::getpid()))) {
  fs::remove_all(dir_);
  fs::create_directories(dir_);
}

TempFolder::~TempFolder() {
  std::error_code ec;
  fs::remove_all(dir_, ec);
}

std::string TempFolder::Write(const std::string& name, std::string_view bytes) const {
  const std::string path = Path(name);
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return path;
}

ScratchDir::ScratchDir()
    : TempFolder(std::string(::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name()) + "-" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name()) {}

std::unique_ptr<StoreReader> SampleReader(const std::string& relative, const std::string& tempFolder) {
  auto reader = std::make_unique<StoreReader>(tempFolder);
  EXPECT_TRUE(reader->OpenSource(std::make_unique<MemorySource>(ReadFile<Buf>(Sample(relative))), relative));
  return reader;
}

std::map<std::uint32_t, NodeEntry> MessageNodes(StoreReader& reader) {
  std::map<std::uint32_t, NodeEntry> messages;
  VisitedSet pages;
  reader.ForEachNodeEntry(reader.NodeRoot(), pages, [&](const NodeEntry& e) {
    if ((e.nodeId & kNodeTypeMask) == kNodeTypeMessage) messages.emplace(e.nodeId, e);
  });
  return messages;
}

bool ReadMessage(StoreReader& reader, const NodeEntry& node, SubnodeLists& subnodes, PropertyBag& bag) {
  reader.ReadSubnodeList(node.subnodeBlock, subnodes);
  return reader.ReadBagFromBlock(node.dataBlock, bag, subnodes);
}

PropertyBag Bag(std::initializer_list<std::tuple<std::uint16_t, std::uint16_t, Buf>> values) {
  PropertyBag bag;
  for (const auto& [id, type, bytes] : values)
    bag.Append(PropertyValue::InMemory(id, type, bytes.data(), bytes.size()));
  return bag;
}

std::vector<std::uint64_t> Column(DiskList& list) {
  std::vector<std::uint64_t> out;
  list.Rewind();
  for (std::uint64_t v = 0; list.NextU64(v);) out.push_back(v);
  return out;
}

std::vector<std::pair<std::string, TreeItem>> Recovered::Paths() const {
  std::vector<std::pair<std::string, TreeItem>> out;
  std::vector<std::string> trail;
  tree.ForEachBelow(root, [&](TreeItem item, int depth) {
    trail.resize(static_cast<std::size_t>(depth - 1));
    trail.push_back(tree.Find(item)->text);
    std::string path;
    for (const std::string& part : trail) path += "/" + part;
    out.emplace_back(path, item);
  });
  return out;
}

const FolderRecord* Recovered::RowOf(TreeItem item) const {
  for (const FolderRecord& f : state.folders) {
    if (f.treeItem == item) return &f;
  }
  return nullptr;
}

Recovered RecoverWith(std::unique_ptr<StoreReader> reader, bool retryPass, bool rawMode) {
  Recovered r;
  r.reader = std::move(reader);
  r.state.rawMode = rawMode;
  r.root = r.tree.AddRoot("source", 9);
  r.outcome.opened = true;
  r.outcome.runs = RecoverStore(*r.reader, r.state, r.tree, r.root, retryPass) ? 1 : 0;
  return r;
}

Recovered ScanPath(const ScanRequest& request, const std::string& tempFolder) {
  Recovered r;
  r.reader = std::make_unique<StoreReader>(tempFolder);
  r.root = r.tree.AddRoot(request.sourcePath, 9);
  r.outcome = StartScan(*r.reader, r.state, r.tree, r.root, request);
  return r;
}

}  // namespace marrow::test
