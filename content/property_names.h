// Names of property ids, and of property types.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace marrow {

struct PropertyNameEntry {
  std::uint32_t key;  // property id, or for named properties the long id
  const char* name;
};

// The static table: published tag names by id in tag order, then named
// property names by long id. Generated at build time.
extern const PropertyNameEntry kPropertyNameRows[];
extern const std::size_t kPropertyNameRowCount;

// The first name entered for `id`, else the id as "0x%.8X".
std::string PropertyName(std::uint32_t id);

// "Integer 32-bit signed", "UTF-16 Unicode string", ...; "Unknown" for others.
const char* TypeName(std::uint16_t type);

}  // namespace marrow
