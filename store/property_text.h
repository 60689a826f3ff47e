// Typed values of a property bag: texts as UTF-8, and numbers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/property_bag.h"

namespace marrow {

// A value's bytes: from memory, or the whole spill file (empty if it cannot be read).
std::vector<std::uint8_t> ValueBytes(const PropertyValue& value);

// The code page of a bag's 8-bit texts: the item's own (0x3FFD), else that
// of its locale (0x3FF1), else the script of its internet code page (0x3FDE),
// else the one the bag was given by its item, else Windows-1252.
unsigned TextCodePage(const PropertyBag& bag);

// Type 0x001F as UTF-16, type 0x001E as 8-bit text in `codePage` (0: the
// bag's TextCodePage), else "". With `stripMarker`, a leading subject marker
// (0x01 and a marker byte) is dropped.
std::string GetString(const PropertyBag& bag, std::uint16_t id, bool stripMarker, unsigned codePage = 0);

// The value when it has 4 bytes, else 0.
std::uint32_t GetU32(const PropertyBag& bag, std::uint16_t id);
// The value when it has 8 bytes, a 4-byte value widened, else 0.
std::uint64_t GetU64(const PropertyBag& bag, std::uint16_t id);

}  // namespace marrow
