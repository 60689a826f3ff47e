// How the advanced property view shows a value.
#pragma once

#include <cstdint>
#include <string>

#include "store/property_bag.h"

namespace marrow {

// The value of `id` shown as `type` would show it.
std::string FormatValue(const PropertyBag& bag, std::uint16_t id, std::uint16_t type);

// "%.2X " per byte, with "\r\n" after byte 0 and every sixteenth byte after
// it; at most the first 1,001 bytes.
std::string FormatBinary(const PropertyValue& value);

// The tag of id and type together, "0x%.8X".
std::string FormatTag(std::uint16_t id, std::uint16_t type);

}  // namespace marrow
