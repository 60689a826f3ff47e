#include "content/property_names.h"

#include <cstdio>
#include <unordered_map>

namespace marrow {

std::string PropertyName(std::uint32_t id) {
  // Built once; keeps the first row of each key, as a scan from the top would find.
  static const std::unordered_map<std::uint32_t, const char*> byKey = [] {
    std::unordered_map<std::uint32_t, const char*> map;
    for (std::size_t i = 0; i < kPropertyNameRowCount; ++i)
      map.emplace(kPropertyNameRows[i].key, kPropertyNameRows[i].name);
    return map;
  }();
  auto hit = byKey.find(id);
  if (hit != byKey.end()) return hit->second;
  char text[16];
  std::snprintf(text, sizeof text, "0x%.8X", id);
  return text;
}

const char* TypeName(std::uint16_t type) {
  switch (type) {
    case 0x0000: return "Unspecified";
    case 0x0001: return "NULL";
    case 0x0002: return "Integer 16-bit signed";
    case 0x0003: return "Integer 32-bit signed";
    case 0x0004: return "Floating point single precision (32-bit)";
    case 0x0005: return "Floating point double precision (64-bit)";
    case 0x0006: return "Currency (64-bit)";
    case 0x0007: return "Application time (64-bit)";
    case 0x000A: return "Error value (32-bit)";
    case 0x000B: return "Boolean";
    case 0x000D: return "Embedded object";
    case 0x0014: return "Integer 64-bit signed";
    case 0x001E: return "Extended ASCII string";
    case 0x001F: return "UTF-16 Unicode string";
    case 0x0040: return "Windows Filetime (64-bit)";
    case 0x0048: return "GUID (128-bit)";
    case 0x00FB: return "Server identifier";
    case 0x00FD: return "Restriction";
    case 0x00FE: return "Rule actions";
    case 0x0102: return "Binary data";
    case 0x1002: return "Array of Integer 16-bit signed values";
    case 0x1003: return "Array of Integer 32-bit signed values";
    case 0x1004: return "Array of Floating point single precision (32-bit) values";
    case 0x1005: return "Array of Floating point double precision (64-bit) values";
    case 0x1006: return "Array of Currency (64-bit) values";
    case 0x1007: return "Array of Application time (64-bit) values";
    case 0x1014: return "Array of Integer 64-bit signed values";
    case 0x101E: return "Array of Extended ASCII string values";
    case 0x101F: return "Array of UTF-16 Unicode string values";
    case 0x1040: return "Array of Windows Filetime (64-bit) values";
    case 0x1048: return "Array of GUID (128-bit) values";
    case 0x1102: return "Array of Binary data values";
    default: return "Unknown";
  }
}

}  // namespace marrow
