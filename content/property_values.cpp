#include "content/property_values.h"

#include <iconv.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fstream>

#include "mail/charset_convert.h"
#include "store/byte_order.h"

namespace marrow {
namespace {

constexpr std::uint16_t kTypeString8 = 0x001E;
constexpr std::uint16_t kTypeUnicode = 0x001F;

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

// The Windows code page of a locale's 8-bit text; 0 when the locale has none
// of its own (Windows-1252 is then taken).
unsigned LocaleCodePage(std::uint32_t lcid) {
  const unsigned language = lcid & 0x3FF;
  switch (language) {
    case 0x11: return 932;   // Japanese
    case 0x12: return 949;   // Korean
    case 0x04:               // Chinese: Taiwan, Hong Kong and Macao write Big5
      return (lcid == 0x0404 || lcid == 0x0C04 || lcid == 0x1404) ? 950 : 936;
    case 0x1E: return 874;   // Thai
    case 0x2A: return 1258;  // Vietnamese
    case 0x08: return 1253;  // Greek
    case 0x0D: return 1255;  // Hebrew
    case 0x01: case 0x20: case 0x29: return 1256;  // Arabic, Urdu, Farsi
    case 0x25: case 0x26: case 0x27: return 1257;  // Estonian, Latvian, Lithuanian
    case 0x1F: case 0x2C: case 0x43: return 1254;  // Turkish, Azeri and Uzbek (Latin)
    case 0x19: case 0x22: case 0x23: case 0x02: case 0x2F: case 0x3F: case 0x40: case 0x44: case 0x50:
      return 1251;  // Russian, Ukrainian, Belarusian, Bulgarian, Macedonian, Kazakh, Kyrgyz, Tatar, Mongolian
    case 0x1A:  // Croatian, Bosnian and Serbian: Cyrillic by sublanguage
      return (lcid == 0x0C1A || lcid == 0x1C1A || lcid == 0x201A || lcid == 0x281A || lcid == 0x301A) ? 1251
                                                                                                       : 1250;
    case 0x05: case 0x0E: case 0x15: case 0x18: case 0x1B: case 0x1C: case 0x24:
      return 1250;  // Czech, Hungarian, Polish, Romanian, Slovak, Albanian, Slovenian
    default: return 0;
  }
}

// The Windows code page of the script an internet code page writes; 0 when
// it gives no hint (Western and Unicode charsets).
unsigned InternetCodePageFamily(std::uint32_t cpid) {
  switch (cpid) {
    case 932: case 20932: case 50220: case 50221: case 50222: case 51932: return 932;
    case 936: case 20936: case 52936: case 54936: return 936;
    case 949: case 50225: case 51949: return 949;
    case 950: case 20000: case 10002: return 950;
    case 1250: case 28592: return 1250;
    case 1251: case 20866: case 21866: case 28595: case 10007: return 1251;
    case 1253: case 28597: return 1253;
    case 1254: case 28599: return 1254;
    case 1255: case 28598: case 38598: return 1255;
    case 1256: case 28596: return 1256;
    case 1257: case 28594: case 28603: return 1257;
    case 874: return 874;
    case 1258: return 1258;
    default: return 0;
  }
}

std::string IconvName(unsigned codePage) {
  switch (codePage) {
    case 65001: return "UTF-8";
    case 20127: return "ASCII";
    case 28591: case 28592: case 28593: case 28594: case 28595: case 28596: case 28597: case 28598:
    case 28599: return "ISO-8859-" + std::to_string(codePage - 28590);
    case 28605: return "ISO-8859-15";
    case 20866: return "KOI8-R";
    case 21866: return "KOI8-U";
    case 50220: case 50221: case 50222: return "ISO-2022-JP";
    case 51932: return "EUC-JP";
    case 51949: return "EUC-KR";
    case 936: return "GBK";
    case 54936: return "GB18030";
    case 950: return "BIG5";
    default: return "CP" + std::to_string(codePage);
  }
}

}  // namespace

std::vector<std::uint8_t> ValueBytes(const PropertyValue& value) { return value.Bytes(); }

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

namespace {

// A converter from the code page to UTF-8; a code page iconv does not know
// is read as the default one.
iconv_t ConverterFor(unsigned codePage) {
  const iconv_t cd = CachedConverter("UTF-8", IconvName(codePage));
  if (cd == nullptr && codePage != kDefaultCodePage) return ConverterFor(kDefaultCodePage);
  return cd;
}

}  // namespace

std::string CodePageToUtf8(const std::uint8_t* bytes, std::size_t size, unsigned codePage) {
  std::size_t length = 0;
  while (length < size && bytes[length] != 0) ++length;
  std::string out;
  const iconv_t cd = ConverterFor(codePage);
  if (cd == nullptr) return std::string(reinterpret_cast<const char*>(bytes), length);
  char* in = const_cast<char*>(reinterpret_cast<const char*>(bytes));
  std::size_t inLeft = length;
  char buffer[1024];
  while (inLeft > 0) {
    char* outPtr = buffer;
    std::size_t outLeft = sizeof buffer;
    const std::size_t rc = iconv(cd, &in, &inLeft, &outPtr, &outLeft);
    out.append(buffer, sizeof buffer - outLeft);
    if (rc == static_cast<std::size_t>(-1) && errno != E2BIG) {
      // A byte the code page does not map: show U+FFFD and go on.
      AppendUtf8(out, 0xFFFD);
      ++in;
      --inLeft;
    }
  }
  return out;
}

std::string CodePageCharset(unsigned codePage) { return IconvName(codePage); }

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
      case 0x00: case 0x01: case 0x04: case 0x05: case 0x06: case 0x07: case 0x10: case 0x14: case 0x1A:
        skip = v->propType == kTypeUnicode ? 4 : 2;
        break;
      default:
        break;
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

std::string GetDateText(const PropertyBag& bag, std::uint16_t id, bool raw) {
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr || v->size != 8) return {};
  const std::uint64_t filetime = ReadU64(v->data, 0);
  const std::time_t t = static_cast<std::time_t>(FiletimeToUnixSeconds(filetime));
  std::tm local{};
  if (localtime_r(&t, &local) == nullptr || local.tm_year + 1900 <= 1900) return {};
  char text[64];
  if (raw) {
    std::snprintf(text, sizeof text, "%lld", static_cast<long long>(filetime));
  } else if (std::strftime(text, sizeof text, "%a %m/%d/%Y %H:%M %p", &local) == 0) {
    return {};
  }
  return text;
}

std::string WriteValueToFile(const PropertyBag& bag, std::uint16_t id, const std::string& path,
                             std::uint64_t& outSize, bool& outIsUnicode) {
  outSize = 0;
  outIsUnicode = false;
  const PropertyValue* v = bag.Find(id);
  if (v == nullptr) return {};
  outIsUnicode = v->propType == kTypeUnicode;
  outSize = v->size;
  if (!v->spillPath.empty()) return v->spillPath;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return {};
  out.write(reinterpret_cast<const char*>(v->data.data()), v->size);
  return out ? path : std::string();
}

}  // namespace marrow
