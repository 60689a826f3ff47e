#include "store/property_text.h"

#include "store/byte_order.h"
#include "text/code_page.h"
#include "text/utf16.h"

namespace marrow {
namespace {

constexpr std::uint16_t kTypeString8 = 0x001E;
constexpr std::uint16_t kTypeUnicode = 0x001F;

}  // namespace

std::vector<std::uint8_t> ValueBytes(const PropertyValue& value) {
  return value.Bytes();
}

unsigned TextCodePage(const PropertyBag& bag) {
  // The item's own code page, unless it names Unicode, which 8-bit text is not.
  const std::uint32_t own = GetU32(bag, 0x3FFD);
  if (own != 0 && own != 1200 && own != 1201 && own != 65001) return own;
  if (const unsigned locale = LocaleCodePage(GetU32(bag, 0x3FF1)); locale != 0) return locale;
  if (const unsigned family = InternetCodePageFamily(GetU32(bag, 0x3FDE)); family != 0) return family;
  return bag.textCodePage != 0 ? bag.textCodePage : kDefaultCodePage;
}

std::string GetString(const PropertyBag& bag, std::uint16_t id, bool stripMarker, unsigned codePage) {
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr || (v->propType != kTypeUnicode && v->propType != kTypeString8)) return {};
  const std::vector<std::uint8_t> bytes = ValueBytes(*v);
  std::size_t skip = 0;
  if (stripMarker && bytes.size() >= 2 && bytes[0] == 0x01) {
    switch (bytes[1]) {
      case 0x00:
      case 0x01:
      case 0x04:
      case 0x05:
      case 0x06:
      case 0x07:
      case 0x10:
      case 0x14:
      case 0x1A: skip = v->propType == kTypeUnicode ? 4 : 2; break;
      default: break;
    }
  }
  if (skip >= bytes.size()) return {};
  if (v->propType == kTypeUnicode) return Utf16ToUtf8(bytes.data() + skip, bytes.size() - skip);
  return CodePageToUtf8(bytes.data() + skip, bytes.size() - skip, codePage != 0 ? codePage : TextCodePage(bag));
}

std::uint32_t GetU32(const PropertyBag& bag, std::uint16_t id) {
  const PropertyValue* v = bag.Find(id);
  return v != nullptr && v->size == 4 ? ReadU32(v->data, 0) : 0;
}

std::uint64_t GetU64(const PropertyBag& bag, std::uint16_t id) {
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr) return 0;
  if (v->size == 8) return ReadU64(v->data, 0);
  if (v->size == 4) return ReadU32(v->data, 0);
  return 0;
}

}  // namespace marrow
