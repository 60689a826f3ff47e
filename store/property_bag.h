// Decoded properties of one node: values in file order, owning their bytes
// and, for values kept on disk, their spill file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace marrow {

class PropertyValue {
 public:
  PropertyValue() = default;
  ~PropertyValue();  // deletes the spill file, if any
  PropertyValue(PropertyValue&& other) noexcept;
  PropertyValue& operator=(PropertyValue&& other) noexcept;
  PropertyValue(const PropertyValue&) = delete;
  PropertyValue& operator=(const PropertyValue&) = delete;

  // A value held in memory; `data` keeps two zero bytes after it so that wide
  // text always ends.
  static PropertyValue InMemory(std::uint16_t id, std::uint16_t type, const std::uint8_t* bytes, std::size_t size);
  // A value kept in a file of `size` bytes, which the value now owns.
  static PropertyValue Spilled(std::uint16_t id, std::uint16_t type, std::string path, std::uint32_t size);
  // A 4-byte value: an inline number, or a reference such as a subnode's NodeId.
  static PropertyValue FromU32(std::uint16_t id, std::uint16_t type, std::uint32_t value);

  // The value's bytes: from memory, or the whole spill file (empty if it cannot be read).
  std::vector<std::uint8_t> Bytes() const;

  std::uint16_t propId = 0;
  std::uint16_t propType = 0;
  std::uint32_t size = 0;
  std::vector<std::uint8_t> data;  // size bytes and two zero bytes; empty when spilled
  std::string spillPath;
};

class PropertyBag {
 public:
  void Append(PropertyValue value) { values_.push_back(std::move(value)); }
  // The first value of `id`, whatever its type; nullptr when there is none.
  const PropertyValue* Find(std::uint16_t id) const;
  const std::vector<PropertyValue>& Values() const { return values_; }
  std::size_t size() const { return values_.size(); }
  bool empty() const { return values_.empty(); }
  void clear() { values_.clear(); }

  // The code page of the bag's 8-bit texts when the bag names none itself:
  // an attachment or a recipient row takes its item's. 0 when not given.
  unsigned textCodePage = 0;

 private:
  std::vector<PropertyValue> values_;
};

// Property types whose value is the 4-byte field of the record itself.
bool IsInlineType(std::uint16_t type);

}  // namespace marrow
