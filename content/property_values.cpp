#include "content/property_values.h"

#include <fstream>

#include "store/byte_order.h"

namespace marrow {

std::string GetDateText(const PropertyBag& bag, std::uint16_t id, bool raw) {
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr || v->size != 8) return {};
  const std::uint64_t filetime = ReadU64(v->data, 0);
  const std::string shown =
      LocalTimeTextAfter1900(static_cast<std::time_t>(FiletimeToUnixSeconds(filetime)), "%a %m/%d/%Y %H:%M %p");
  if (shown.empty() || !raw) return shown;
  return std::to_string(static_cast<long long>(filetime));
}

std::string WriteValueToFile(const PropertyBag& bag, std::uint16_t id, const std::string& path, std::uint64_t& outSize,
                             bool& outIsUnicode) {
  outSize = 0;
  outIsUnicode = false;
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr) return {};
  outIsUnicode = v->propType == 0x001F;
  outSize = v->size;
  if (!v->spillPath.empty()) return v->spillPath;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return {};
  out.write(reinterpret_cast<const char*>(v->data.data()), v->size);
  return out ? path : std::string();
}

}  // namespace marrow
