// The properties of one node as the advanced property view shows them, read
// through the node index alone (no recovery runs).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/property_bag.h"

namespace marrow {

class StoreReader;

struct PropertyRow {
  std::string tag;  // "0x%.8X" of id and type
  std::string name, type, value;
};

struct NodeProperties {
  bool inIndex = false;  // false: the node index has no such node; no rows
  PropertyBag bag;
  std::vector<PropertyRow> rows;
};

NodeProperties ReadNodeProperties(StoreReader& reader, std::uint64_t nodeId);
// The same over a store file opened for the purpose. False, with `error` the
// reader's text, when the file cannot be opened.
bool ReadNodeProperties(const std::string& storePath, std::uint64_t nodeId, NodeProperties& out, std::string& error);

// Writes the node's compressed RTF body, decompressed and checked, to `path`;
// false when it has none that passes.
bool WriteNodeRtf(const NodeProperties& node, const std::string& path);

}  // namespace marrow
