#include "tests/support/heap_builder.h"

namespace marrow::test {

std::vector<std::uint8_t> LE(std::uint64_t v, int width) {
  std::vector<std::uint8_t> out;
  for (int i = 0; i < width; ++i) out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
  return out;
}

std::vector<std::uint8_t> Cat(std::initializer_list<std::vector<std::uint8_t>> parts) {
  std::vector<std::uint8_t> out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

std::vector<std::uint8_t> Record(std::uint16_t id, std::uint16_t type, std::uint32_t value) {
  return Cat({LE(id, 2), LE(type, 2), LE(value, 4)});
}

std::vector<std::uint8_t> Wide(const char* text) {
  std::vector<std::uint8_t> out;
  for (const char* p = text; *p; ++p) {
    out.push_back(static_cast<std::uint8_t>(*p));
    out.push_back(0);
  }
  return out;
}

std::uint32_t HeapBuilder::Add(const std::vector<std::uint8_t>& bytes) {
  allocations_.push_back(bytes);
  return static_cast<std::uint32_t>(allocations_.size()) << 5;
}

std::vector<std::uint8_t> HeapBuilder::Build() const {
  std::vector<std::uint8_t> block = Cat({LE(0, 2), {0xEC, client_}, LE(root_, 4), LE(0, 4)});
  std::vector<std::uint16_t> starts;
  for (const auto& a : allocations_) {
    starts.push_back(static_cast<std::uint16_t>(block.size()));
    block.insert(block.end(), a.begin(), a.end());
  }
  if (block.size() % 2) block.push_back(0);
  const std::uint16_t map = static_cast<std::uint16_t>(block.size());
  starts.push_back(map);
  block[0] = static_cast<std::uint8_t>(map);
  block[1] = static_cast<std::uint8_t>(map >> 8);
  auto tail = Cat({LE(allocations_.size(), 2), LE(0, 2)});
  block.insert(block.end(), tail.begin(), tail.end());
  for (std::uint16_t s : starts) {
    block.push_back(static_cast<std::uint8_t>(s));
    block.push_back(static_cast<std::uint8_t>(s >> 8));
  }
  return block;
}

std::vector<std::uint8_t> PropertyList(const std::vector<std::vector<std::uint8_t>>& values,
                                       const std::vector<std::vector<std::uint8_t>>& records, std::uint8_t keySize,
                                       std::uint8_t valueSize) {
  HeapBuilder h(0xBC);
  const std::uint32_t recordsId = (2 + static_cast<std::uint32_t>(values.size())) << 5;
  h.Root(h.Add(Cat({{0xB5, keySize, valueSize, 0}, LE(recordsId, 4)})));
  for (const auto& v : values) h.Add(v);
  std::vector<std::uint8_t> all;
  for (const auto& r : records) all.insert(all.end(), r.begin(), r.end());
  h.Add(all);
  return h.Build();
}

}  // namespace marrow::test
