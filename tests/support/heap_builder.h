// Builds one heap block: header, allocations, allocation map.
#pragma once

#include <cstdint>
#include <vector>

namespace marrow::test {

class HeapBuilder {
 public:
  explicit HeapBuilder(std::uint8_t client) : client_(client) {}
  // Adds an allocation; returns its heap id (index in bits 5 and up).
  std::uint32_t Add(const std::vector<std::uint8_t>& bytes);
  void Root(std::uint32_t heapId) { root_ = heapId; }
  std::vector<std::uint8_t> Build() const;

 private:
  std::uint8_t client_;
  std::uint32_t root_ = 0;
  std::vector<std::vector<std::uint8_t>> allocations_;
};

// Little-endian bytes of a value, for building records.
std::vector<std::uint8_t> LE(std::uint64_t v, int width);
std::vector<std::uint8_t> Cat(std::initializer_list<std::vector<std::uint8_t>> parts);
// A property record: id, type, value or heap id.
std::vector<std::uint8_t> Record(std::uint16_t id, std::uint16_t type, std::uint32_t value);
// A property list heap: allocation 1 the tree header, 2 to n+1 the values,
// the last the records (whose heap ids name the values as 2 << 5 on).
std::vector<std::uint8_t> PropertyList(const std::vector<std::vector<std::uint8_t>>& values,
                                       const std::vector<std::vector<std::uint8_t>>& records, std::uint8_t keySize = 2,
                                       std::uint8_t valueSize = 6);
// UTF-16LE bytes of ASCII text.
std::vector<std::uint8_t> Wide(const char* text);

}  // namespace marrow::test
