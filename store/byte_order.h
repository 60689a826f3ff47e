// Little-endian loads from a byte span that can never read past its end.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace marrow {

using Bytes = std::span<const std::uint8_t>;

static_assert(std::endian::native == std::endian::little, "the store reader assumes a little-endian host");

// Bytes beyond the end of the span read as zero: the same answer as the
// zeroed tail of a fixed read buffer, which is what the format code expects.
template <typename T>
inline T ReadLE(Bytes b, std::size_t off) {
  T v = 0;
  if (off >= b.size()) return 0;
  std::size_t n = b.size() - off < sizeof(T) ? b.size() - off : sizeof(T);
  std::memcpy(&v, b.data() + off, n);
  return v;
}

inline std::uint8_t ReadU8(Bytes b, std::size_t off) {
  return off < b.size() ? b[off] : 0;
}
inline std::uint16_t ReadU16(Bytes b, std::size_t off) {
  return ReadLE<std::uint16_t>(b, off);
}
inline std::uint32_t ReadU32(Bytes b, std::size_t off) {
  return ReadLE<std::uint32_t>(b, off);
}
inline std::uint64_t ReadU64(Bytes b, std::size_t off) {
  return ReadLE<std::uint64_t>(b, off);
}

}  // namespace marrow
