#include "session/node_properties.h"

#include "content/property_names.h"
#include "content/rtf_body.h"
#include "content/value_format.h"
#include "store/store_reader.h"

namespace marrow {
namespace {
// The advanced view leaves out this row.
constexpr std::uint16_t kHiddenRow = 0x0E06;
}  // namespace

NodeProperties ReadNodeProperties(StoreReader& reader, std::uint64_t nodeId) {
  NodeProperties node;
  VisitedSet visited;
  std::uint64_t dataBlock = 0, subnodeBlock = 0;
  node.inIndex = reader.FindNodeRow(reader.NodeRoot(), nodeId, dataBlock, subnodeBlock, visited) != 0;
  if (!node.inIndex) return node;
  SubnodeLists subnodes;
  reader.ReadSubnodeList(subnodeBlock, subnodes);
  reader.ReadBagFromBlock(dataBlock, node.bag, subnodes);
  for (const PropertyValue& v : node.bag.Values()) {
    if (v.propId == kHiddenRow) continue;
    node.rows.push_back({FormatTag(v.propId, v.propType), PropertyName(v.propId), TypeName(v.propType),
                         FormatValue(node.bag, v.propId, v.propType)});
  }
  return node;
}

bool ReadNodeProperties(const std::string& storePath, std::uint64_t nodeId, NodeProperties& out, std::string& error) {
  StoreReader reader;
  if (!reader.OpenStore(storePath)) {
    error = reader.LastError();
    return false;
  }
  out = ReadNodeProperties(reader, nodeId);
  return true;
}

bool WriteNodeRtf(const NodeProperties& node, const std::string& path) {
  return WriteRtfBody(node.bag, path);
}

}  // namespace marrow
