// Multi-value properties: strings and binaries laid out as a count, offsets
// and data, and the categories an item keeps in one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "content/named_lookup.h"
#include "content/property_values.h"
#include "store/byte_order.h"
#include "store/property_bag.h"

namespace marrow {

// The values of a multi-value string (0x101F or 0x101E); empty for other types.
std::vector<std::string> ReadMultiString(const PropertyValue& value, unsigned codePage = kDefaultCodePage);
// Slices of a multi-value binary laid out as count, offsets, data. True when
// at least one slice was cut.
bool SplitMultiBinary(Bytes bytes, std::vector<std::vector<std::uint8_t>>& slices);
// The item's categories joined with ";"; "" when it has none.
std::string GetCategories(const PropertyBag& bag, const NameMap& map);

}  // namespace marrow
