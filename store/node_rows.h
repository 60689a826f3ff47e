// Rows the reader hands out: folder rows of the node index, the rows of a
// node's subnode list, and the store's named properties.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace marrow {

// A folder node as the node index lists it.
struct FolderRow {
  std::uint64_t nodeId;
  std::uint64_t dataBlock;
  std::uint64_t subnodeBlock;
  std::uint64_t parent;
};

// One row of a node's subnode list.
struct SubnodeRow {
  std::uint64_t nodeId;  // the 32-bit id
  std::uint64_t dataBlock;
  std::uint64_t subnodeBlock;
  std::uint64_t storedId = 0;  // the id field as stored, padding included
};
using SubnodeLists = std::vector<SubnodeRow>;

// Receives each message node of a folder listing.
using ItemHandler = std::function<void(std::uint64_t dataBlock, std::uint64_t nodeId, std::uint64_t subnodeBlock)>;

// A named property of the store: its numeric name in a property set, and the
// property id the store uses for it.
struct NamedProperty {
  std::uint32_t numericName;
  std::uint16_t propId;
  std::string guidText;  // "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}"
};

}  // namespace marrow
