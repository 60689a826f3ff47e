// marrow-cli props FILE NODEID [--json] [--rtf OUT]
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/json_writer.h"
#include "content/property_names.h"
#include "content/rtf_body.h"
#include "content/value_format.h"
#include "store/property_bag.h"
#include "store/store_reader.h"

namespace marrow::cli {
namespace {

constexpr const char* kUsage = "usage: marrow-cli props FILE NODEID [--json] [--rtf OUT]\n";
// The advanced view leaves out this row.
constexpr std::uint16_t kHiddenRow = 0x0E06;

struct Row {
  std::string tag, name, type, value;
};

std::vector<Row> Rows(const PropertyBag& bag) {
  std::vector<Row> rows;
  for (const PropertyValue& v : bag.Values()) {
    if (v.propId == kHiddenRow) continue;
    rows.push_back({FormatTag(v.propId, v.propType), PropertyName(v.propId), TypeName(v.propType),
                    FormatValue(bag, v.propId, v.propType)});
  }
  return rows;
}

}  // namespace

int RunProps(const std::vector<std::string>& args) {
  std::vector<std::string> positional;
  std::string rtfOut;
  bool json = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--json") {
      json = true;
    } else if (args[i] == "--rtf" && i + 1 < args.size()) {
      rtfOut = args[++i];
    } else if (!args[i].empty() && args[i][0] != '-') {
      positional.push_back(args[i]);
    } else {
      std::fprintf(stderr, "%s", kUsage);
      return 2;
    }
  }
  char* end = nullptr;
  const std::uint64_t nodeId = positional.size() == 2 ? std::strtoull(positional[1].c_str(), &end, 0) : 0;
  if (positional.size() != 2 || end == nullptr || *end != '\0') {
    std::fprintf(stderr, "%s", kUsage);
    return 2;
  }
  StoreReader reader;
  if (!reader.OpenStore(positional[0])) {
    std::fprintf(stderr, "marrow-cli: %s: %s\n", positional[0].c_str(), reader.LastError().c_str());
    return 1;
  }
  VisitedSet visited;
  std::uint64_t dataBlock = 0, subnodeBlock = 0;
  PropertyBag bag;
  if (reader.FindNodeRow(reader.NodeRoot(), nodeId, dataBlock, subnodeBlock, visited) != 0) {
    SubnodeLists subnodes;
    reader.ReadSubnodeList(subnodeBlock, subnodes);
    reader.ReadBagFromBlock(dataBlock, bag, subnodes);
  } else {
    std::fprintf(stderr, "marrow-cli: node 0x%llX is not in the node index\n", static_cast<unsigned long long>(nodeId));
  }
  bool rtfWritten = false;
  if (!rtfOut.empty()) {
    rtfWritten = WriteRtfBody(bag, rtfOut);
    std::fprintf(stderr, rtfWritten ? "RTF body written to %s\n" : "no RTF body written to %s\n", rtfOut.c_str());
  }

  const std::vector<Row> rows = Rows(bag);
  if (json) {
    JsonWriter w;
    w.BeginObject();
    w.Member("nodeId", nodeId);
    w.Key("properties");
    w.BeginArray();
    for (const Row& r : rows) {
      w.BeginObject();
      w.Member("tag", r.tag);
      w.Member("name", r.name);
      w.Member("type", r.type);
      w.Member("value", r.value);
      w.EndObject();
    }
    w.EndArray();
    if (!rtfOut.empty()) {
      w.Member("rtfWritten", rtfWritten);
    }
    w.EndObject();
    std::printf("%s\n", w.Text().c_str());
  } else {
    for (const Row& r : rows) std::printf("%s  %-40s %-28s %s\n", r.tag.c_str(), r.name.c_str(), r.type.c_str(), r.value.c_str());
  }
  return 0;
}

}  // namespace marrow::cli
