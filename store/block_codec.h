// Block encodings of the store format: the permute and cyclic byte codes and zlib.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "store/byte_order.h"

namespace marrow {

// Crypt methods as the header names them.
enum : int { kCryptNone = 0, kCryptPermute = 1, kCryptCyclic = 2 };

// Decodes (or, for method 1 with `decoding` false, encodes) `size` bytes in
// place. `key` is the block id; only its low 32 bits count. Returns 0, or -1
// for a null buffer or a method other than 1 and 2, leaving the bytes alone.
int DecodeBlock(std::uint8_t* buffer, std::size_t size, std::uint64_t key, bool decoding, int method);

// The 768 bytes of the three substitution tables, for tests.
std::span<const std::uint8_t, 768> CryptTables();

// The most a single inflate may produce. Real blocks inflate to at most
// 64 KiB; the bound only stops hostile input from exhausting memory.
constexpr std::size_t kMaxInflatedSize = 4u << 20;

// Inflates a zlib stream. A stream that breaks off yields what came out
// before the break.
std::vector<std::uint8_t> InflateBuffer(Bytes data, std::size_t maxOut = kMaxInflatedSize);

// True when the bytes begin with the zlib header 0x78 0x9C.
bool LooksDeflated(Bytes data);

}  // namespace marrow
