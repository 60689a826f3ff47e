#include "tests/content/content_test_util.h"

#include <glib.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/test_data.h"

namespace marrow::test {

namespace {

// Every content test reads times in UTC.
class UtcZone : public ::testing::Environment {
 public:
  void SetUp() override {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
  }
};
const auto* const kUtcZone = ::testing::AddGlobalTestEnvironment(new UtcZone);

}  // namespace

PropertyBag Bag(std::initializer_list<std::tuple<std::uint16_t, std::uint16_t, Buf>> values) {
  PropertyBag bag;
  for (const auto& [id, type, bytes] : values)
    bag.Append(PropertyValue::InMemory(id, type, bytes.data(), bytes.size()));
  return bag;
}

bool OpenSample(StoreReader& reader, const std::string& store) {
  return reader.OpenSource(std::make_unique<MemorySource>(ReadFileBytes(Sample(store))), store);
}

std::map<std::uint32_t, NodeEntry> MessageNodes(StoreReader& reader) {
  std::map<std::uint32_t, NodeEntry> messages;
  VisitedSet pages;
  reader.ForEachNodeEntry(reader.NodeRoot(), pages, [&](const NodeEntry& e) {
    if ((e.nodeId & kNodeTypeMask) == kNodeTypeMessage) messages.emplace(e.nodeId, e);
  });
  return messages;
}

bool ReadMessage(StoreReader& reader, const NodeEntry& node, SubnodeLists& subnodes,
                 PropertyBag& bag) {
  reader.ReadSubnodeList(node.subnodeBlock, subnodes);
  return reader.ReadBagFromBlock(node.dataBlock, bag, subnodes);
}

namespace {

// The field escapes of tests/data/oracle/oracle_text.py: \t \n \r \xNN and \\.
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

std::vector<std::vector<std::string>> OracleRows(const std::string& name, std::size_t fields) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream in(std::string(MARROW_SOURCE_DIR) + "/tests/data/oracle/" + name);
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::vector<std::string> row;
    std::stringstream cells(line);
    for (std::string s; std::getline(cells, s, '\t');) row.push_back(Unescape(s));
    if (row.size() == fields) rows.push_back(std::move(row));
  }
  return rows;
}

std::string FileSha256(const std::string& path) {
  const Buf bytes = ReadFileBytes(path);
  gchar* hex = g_compute_checksum_for_data(G_CHECKSUM_SHA256, bytes.data(), bytes.size());
  const std::string out = hex;
  g_free(hex);
  return out;
}

}  // namespace marrow::test
