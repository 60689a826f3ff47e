#include "content/named_lookup.h"

#include "content/property_values.h"

namespace marrow {

std::uint16_t LocalIdFor(const NameMap& map, std::uint32_t longId) {
  for (const NamedProperty& p : map) {
    if (p.numericName == longId) return p.propId;
  }
  return static_cast<std::uint16_t>(longId & 0xFFFF);
}

std::uint32_t LongIdFor(const NameMap& map, std::uint16_t localId, std::string* guidText) {
  for (const NamedProperty& p : map) {
    if (p.propId != localId) continue;
    if (guidText != nullptr) *guidText = p.guidText;
    return p.numericName;
  }
  if (guidText != nullptr) guidText->clear();
  return localId;
}

const PropertyValue* FindNamed(const PropertyBag& bag, const NameMap& map, std::uint32_t longId) {
  return bag.Find(LocalIdFor(map, longId));
}

std::string GetNamedString(const PropertyBag& bag, const NameMap& map, std::uint32_t longId) {
  return GetString(bag, LocalIdFor(map, longId), false);
}

}  // namespace marrow
