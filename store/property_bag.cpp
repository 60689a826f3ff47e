#include "store/property_bag.h"

#include <unistd.h>

#include <fstream>
#include <iterator>

namespace marrow {

PropertyValue::~PropertyValue() {
  if (!spillPath.empty()) ::unlink(spillPath.c_str());
}

PropertyValue::PropertyValue(PropertyValue&& other) noexcept
    : propId(other.propId),
      propType(other.propType),
      size(other.size),
      data(std::move(other.data)),
      spillPath(std::move(other.spillPath)) {
  other.spillPath.clear();
}

PropertyValue& PropertyValue::operator=(PropertyValue&& other) noexcept {
  if (this != &other) {
    if (!spillPath.empty()) ::unlink(spillPath.c_str());
    propId = other.propId;
    propType = other.propType;
    size = other.size;
    data = std::move(other.data);
    spillPath = std::move(other.spillPath);
    other.spillPath.clear();
  }
  return *this;
}

PropertyValue PropertyValue::InMemory(std::uint16_t id, std::uint16_t type, const std::uint8_t* bytes,
                                      std::size_t size) {
  PropertyValue v;
  v.propId = id;
  v.propType = type;
  v.size = static_cast<std::uint32_t>(size);
  v.data.assign(bytes, bytes + size);
  v.data.push_back(0);
  v.data.push_back(0);
  return v;
}

PropertyValue PropertyValue::Spilled(std::uint16_t id, std::uint16_t type, std::string path, std::uint32_t size) {
  PropertyValue v;
  v.propId = id;
  v.propType = type;
  v.size = size;
  v.spillPath = std::move(path);
  return v;
}

PropertyValue PropertyValue::FromU32(std::uint16_t id, std::uint16_t type, std::uint32_t value) {
  const std::uint8_t field[4] = {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
                                 static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
  return InMemory(id, type, field, 4);
}

std::vector<std::uint8_t> PropertyValue::Bytes() const {
  if (!spillPath.empty()) {
    std::ifstream in(spillPath, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return std::vector<std::uint8_t>(data.begin(), data.begin() + std::min<std::size_t>(size, data.size()));
}

const PropertyValue* PropertyBag::Find(std::uint16_t id) const {
  for (const PropertyValue& v : values_) {
    if (v.propId == id) return &v;
  }
  return nullptr;
}

bool IsInlineType(std::uint16_t type) {
  switch (type) {
    case 0x0000:
    case 0x0001:
    case 0x0002:
    case 0x0003:
    case 0x0004:
    case 0x000A:
    case 0x000B: return true;
    default: return false;
  }
}

}  // namespace marrow
