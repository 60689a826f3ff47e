#include "text/utf16.h"

namespace marrow {

void AppendUtf8(std::string& out, std::uint32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

std::string Utf16ToUtf8(const std::uint8_t* bytes, std::size_t size) {
  std::string out;
  for (std::size_t i = 0; i + 1 < size; i += 2) {
    std::uint32_t c = bytes[i] | (bytes[i + 1] << 8);
    if (c == 0) break;
    if (c >= 0xD800 && c <= 0xDBFF && i + 3 < size) {
      const std::uint32_t low = bytes[i + 2] | (bytes[i + 3] << 8);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        i += 2;
      } else {
        c = 0xFFFD;
      }
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::vector<std::uint8_t> Utf8ToUtf16(const std::string& text) {
  std::vector<std::uint8_t> out;
  out.reserve(text.size() * 2);
  auto put = [&out](std::uint32_t unit) {
    out.push_back(static_cast<std::uint8_t>(unit));
    out.push_back(static_cast<std::uint8_t>(unit >> 8));
  };
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  for (std::size_t i = 0; i < n;) {
    const unsigned char lead = s[i];
    std::uint32_t c = 0xFFFD;
    std::size_t length = 1;
    const std::size_t want = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
    if (want == 1) {
      c = lead;
    } else if (want > 1 && i + want <= n) {
      std::uint32_t v = lead & (0x7F >> want);
      bool good = true;
      for (std::size_t k = 1; k < want; ++k) {
        if ((s[i + k] & 0xC0) != 0x80) good = false;
        v = (v << 6) | (s[i + k] & 0x3F);
      }
      static const std::uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
      if (good && v >= kMin[want] && v <= 0x10FFFF && (v < 0xD800 || v > 0xDFFF)) {
        c = v;
        length = want;
      }
    }
    i += length;
    if (c >= 0x10000) {
      put(0xD800 + ((c - 0x10000) >> 10));
      put(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      put(c);
    }
  }
  return out;
}

}  // namespace marrow
