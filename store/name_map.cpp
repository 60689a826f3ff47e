// The store's named properties, read from node 0x61.
#include <cstdio>

#include "store/property_bag.h"
#include "store/store_reader.h"

namespace marrow {
namespace {

constexpr std::uint64_t kNameMapNode = 0x61;
constexpr std::uint16_t kGuidStream = 0x0002;
constexpr std::uint16_t kEntryStream = 0x0003;

std::vector<std::uint8_t> StreamBytes(const PropertyBag& bag, std::uint16_t id) {
  const PropertyValue* v = bag.Find(id);
  return v != nullptr ? v->Bytes() : std::vector<std::uint8_t>();
}

// The GUID's text, its first three fields little-endian as stored.
std::string GuidText(const std::uint8_t* g) {
  char text[40];
  std::snprintf(text, sizeof text, "%.2x%.2x%.2x%.2x-%.2x%.2x-%.2x%.2x-%.2x%.2x-%.2x%.2x%.2x%.2x%.2x%.2x", g[3], g[2],
                g[1], g[0], g[5], g[4], g[7], g[6], g[8], g[9], g[10], g[11], g[12], g[13], g[14], g[15]);
  return text;
}

}  // namespace

void StoreReader::LoadNameMap() {
  VisitedSet visited;
  std::uint64_t dataBlock = 0, subnodeBlock = 0;
  if (FindNodeRow(NodeRoot(), kNameMapNode, dataBlock, subnodeBlock, visited) == 0) return;
  SubnodeLists subnodes;
  ReadSubnodeList(subnodeBlock, subnodes);
  PropertyBag bag;
  ReadBagFromBlock(dataBlock, bag, subnodes);

  std::vector<std::string> guids;
  const std::vector<std::uint8_t> guidBytes = StreamBytes(bag, kGuidStream);
  for (std::size_t at = 0; at + 16 <= guidBytes.size(); at += 16) guids.push_back(GuidText(&guidBytes[at]));

  // Entries name a property set by index: 1 and 2 are built-in sets, 3 and
  // up index the GUID stream. Names given as strings are not resolved.
  const std::vector<std::uint8_t> entries = StreamBytes(bag, kEntryStream);
  for (std::size_t at = 0; at + 8 <= entries.size(); at += 8) {
    const Bytes e(&entries[at], 8);
    const std::uint32_t name = ReadU32(e, 0);
    const int g = (ReadU16(e, 4) >> 1) - 3;
    const std::uint16_t index = ReadU16(e, 6);
    if (name < 0x8000 || g < 0 || static_cast<std::size_t>(g) >= guids.size()) continue;
    namedProperties_.push_back({name, static_cast<std::uint16_t>(index + 0x8000), "{" + guids[g] + "}"});
  }
}

}  // namespace marrow
