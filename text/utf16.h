// UTF-16LE as the store keeps it, to and from UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace marrow {

// Appends code point `c` to `out` as UTF-8.
void AppendUtf8(std::string& out, std::uint32_t c);
// UTF-16LE up to the first NUL, as UTF-8; unpaired surrogates become U+FFFD.
std::string Utf16ToUtf8(const std::uint8_t* bytes, std::size_t size);
// UTF-8 as UTF-16LE, without a terminator; broken sequences become U+FFFD.
std::vector<std::uint8_t> Utf8ToUtf16(const std::string& text);

}  // namespace marrow
