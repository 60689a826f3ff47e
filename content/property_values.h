// Reading typed values out of a property bag. Texts come back as UTF-8.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "store/property_bag.h"

namespace marrow {

constexpr unsigned kDefaultCodePage = 1252;  // 8-bit text when the item names no code page

// A value's bytes: from memory, or the whole spill file (empty if it cannot be read).
std::vector<std::uint8_t> ValueBytes(const PropertyValue& value);

// UTF-16LE up to the first NUL, as UTF-8; unpaired surrogates become U+FFFD.
std::string Utf16ToUtf8(const std::uint8_t* bytes, std::size_t size);
// UTF-8 as UTF-16LE, without a terminator; broken sequences become U+FFFD.
std::vector<std::uint8_t> Utf8ToUtf16(const std::string& text);
// 8-bit text in `codePage` up to the first NUL, as UTF-8.
std::string CodePageToUtf8(const std::uint8_t* bytes, std::size_t size, unsigned codePage);

// The iconv name of a Windows code page.
std::string CodePageCharset(unsigned codePage);

// The code page of a bag's 8-bit texts: the item's own (0x3FFD), else that
// of its locale (0x3FF1), else the script of its internet code page (0x3FDE),
// else the one the bag was given by its item, else Windows-1252.
unsigned TextCodePage(const PropertyBag& bag);

// Type 0x001F as UTF-16, type 0x001E as 8-bit text in `codePage` (0: the
// bag's TextCodePage), else "". With `stripMarker`, a leading subject marker
// (0x01 and a marker byte) is dropped.
std::string GetString(const PropertyBag& bag, std::uint16_t id, bool stripMarker, unsigned codePage = 0);
// A FILETIME (100 ns since 1601-01-01) as seconds since 1970.
inline std::int64_t FiletimeToUnixSeconds(std::uint64_t filetime) {
  return static_cast<std::int64_t>(filetime / 10000000) - 11644473600LL;
}

// The value when it has 4 bytes, else 0.
std::uint32_t GetU32(const PropertyBag& bag, std::uint16_t id);
// The value when it has 8 bytes, a 4-byte value widened, else 0.
std::uint64_t GetU64(const PropertyBag& bag, std::uint16_t id);
// An 8-byte FILETIME as local "%a %m/%d/%Y %H:%M %p", or with `raw` its
// decimal value; "" when absent or not past the year 1900.
std::string GetDateText(const PropertyBag& bag, std::uint16_t id, bool raw);
// Writes a value's raw bytes to `path` and returns it; a spilled value
// returns its spill file instead. An absent value returns "" with size 0.
std::string WriteValueToFile(const PropertyBag& bag, std::uint16_t id, const std::string& path,
                             std::uint64_t& outSize, bool& outIsUnicode);

}  // namespace marrow
