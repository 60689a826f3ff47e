// The members of a distribution list, read from one-off entry identifiers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "content/named_lookup.h"
#include "store/byte_order.h"
#include "store/property_bag.h"

namespace marrow {

// The raw bytes of every subnode of an item; asked for only when a
// distribution list keeps its members nowhere else.
using SubnodeBytes = std::function<std::vector<std::vector<std::uint8_t>>()>;

// One member of a distribution list, from a one-off entry identifier.
struct ListMember {
  std::string name, addressType, address;
  bool operator==(const ListMember&) const = default;
};
// False when `entry` is no one-off identifier or is cut short.
bool ReadOneOffEntry(Bytes entry, ListMember& member);
// The members of a distribution list, empty names and repeats dropped.
std::vector<ListMember> ListMembers(const PropertyBag& bag, const NameMap& map, const SubnodeBytes& subnodes);

}  // namespace marrow
