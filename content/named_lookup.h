// Named properties of an item. A store gives each named property it meets a
// local id of its own (0x8000 and up); the name map read from the store says
// which numeric name (long id) each local id stands for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/property_bag.h"
#include "store/store_reader.h"

namespace marrow {

using NameMap = std::vector<NamedProperty>;

// The local id of `longId`: that of the first entry with this numeric name.
// With no such entry the long id stands as the local id, cut to 16 bits, so
// a plain tag such as 0x3A16 passes through unchanged.
std::uint16_t LocalIdFor(const NameMap& map, std::uint32_t longId);

// The long id behind `localId`, with its property set in `guidText` when
// that is not null. With no entry for it, `localId` itself and "".
std::uint32_t LongIdFor(const NameMap& map, std::uint16_t localId, std::string* guidText);

// The item's value of `longId`; nullptr when it has none.
const PropertyValue* FindNamed(const PropertyBag& bag, const NameMap& map, std::uint32_t longId);

// The item's text of `longId` as GetString reads it; "" when it has none.
std::string GetNamedString(const PropertyBag& bag, const NameMap& map, std::uint32_t longId);

}  // namespace marrow
