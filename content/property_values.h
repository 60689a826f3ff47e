// Reading typed values out of a property bag. Texts come back as UTF-8.
#pragma once

#include <cstdint>
#include <string>

#include "store/property_bag.h"
#include "store/property_text.h"
#include "text/code_page.h"
#include "text/filetime.h"
#include "text/utf16.h"

namespace marrow {

// An 8-byte FILETIME as local "%a %m/%d/%Y %H:%M %p", or with `raw` its
// decimal value; "" when absent or not past the year 1900.
std::string GetDateText(const PropertyBag& bag, std::uint16_t id, bool raw);
// Writes a value's raw bytes to `path` and returns it; a spilled value
// returns its spill file instead. An absent value returns "" with size 0.
std::string WriteValueToFile(const PropertyBag& bag, std::uint16_t id, const std::string& path, std::uint64_t& outSize,
                             bool& outIsUnicode);

}  // namespace marrow
