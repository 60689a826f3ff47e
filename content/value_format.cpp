#include "content/value_format.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "content/property_values.h"
#include "store/byte_order.h"

namespace marrow {
namespace {

constexpr std::size_t kMaxBinaryShown = 1001;

// The platform's general date form, local time: "1/2/2024 3:04:05 PM".
std::string GeneralDate(std::time_t t) {
  return LocalTimeText(t, "%-m/%-d/%Y %-I:%M:%S %p");
}

std::string FileTimeText(std::uint64_t filetime) {
  if (filetime == 0) return {};
  return GeneralDate(static_cast<std::time_t>(FiletimeToUnixSeconds(filetime)));
}

// An application time: days since 1899-12-30 as a double.
std::string AppTimeText(std::uint64_t bits) {
  double days = 0;
  static_assert(sizeof days == sizeof bits);
  std::memcpy(&days, &bits, sizeof days);
  if (!(days > -657435.0 && days < 2958466.0) || days == 0) return {};
  return GeneralDate(static_cast<std::time_t>((days - 25569.0) * 86400.0));
}

bool IsArrayType(std::uint16_t type) {
  return (type & 0x1000) != 0;
}

}  // namespace

std::string FormatBinary(const PropertyValue& value) {
  const std::vector<std::uint8_t> bytes = ValueBytes(value);
  std::string out;
  char hex[4];
  for (std::size_t i = 0; i < bytes.size() && i < kMaxBinaryShown; ++i) {
    std::snprintf(hex, sizeof hex, "%.2X ", bytes[i]);
    out += hex;
    if (i % 16 == 0) out += "\r\n";
  }
  return out;
}

std::string FormatTag(std::uint16_t id, std::uint16_t type) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%.8X", (std::uint32_t{id} << 16) | type);
  return text;
}

std::string FormatValue(const PropertyBag& bag, std::uint16_t id, std::uint16_t type) {
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr) return {};
  char text[64];
  switch (type) {
    case 0x0001:
    case 0x000B: return {};
    case 0x0002:
      // Stored values are 4 bytes wide, so the 2-byte test never passes.
      std::snprintf(text, sizeof text, "%d", v->size == 2 ? static_cast<std::int16_t>(ReadU16(v->data, 0)) : 0);
      return text;
    case 0x0003: std::snprintf(text, sizeof text, "%d", static_cast<std::int32_t>(GetU32(bag, id))); return text;
    case 0x0004:
      // The raw 32 bits as a number, not reinterpreted as a float.
      std::snprintf(text, sizeof text, "%f", static_cast<double>(GetU32(bag, id)));
      return text;
    case 0x0005: std::snprintf(text, sizeof text, "%lld", static_cast<long long>(GetU64(bag, id))); return text;
    case 0x0006:
    case 0x0014: std::snprintf(text, sizeof text, "%05lld", static_cast<long long>(GetU64(bag, id))); return text;
    case 0x0007: return v->size == 8 ? AppTimeText(ReadU64(v->data, 0)) : std::string();
    case 0x0040: return v->size == 8 ? FileTimeText(ReadU64(v->data, 0)) : std::string();
    case 0x001E:
    case 0x001F: return GetString(bag, id, false);
    case 0x0000:
    case 0x000A:
    case 0x000D:
    case 0x0048:
    case 0x00FB:
    case 0x00FD:
    case 0x00FE:
    case 0x0102: return FormatBinary(*v);
    default: return IsArrayType(type) ? FormatBinary(*v) : std::string();
  }
}

}  // namespace marrow
