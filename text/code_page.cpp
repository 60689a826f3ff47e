#include "text/code_page.h"

#include <iconv.h>

#include <cerrno>

#include "text/charset_convert.h"
#include "text/utf16.h"

namespace marrow {

// clang-format off
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
// clang-format on

// clang-format off
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
// clang-format on

// clang-format off
std::string CodePageCharset(unsigned codePage) {
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
// clang-format on

namespace {

iconv_t ConverterFor(unsigned codePage) {
  const iconv_t cd = CachedConverter("UTF-8", CodePageCharset(codePage));
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

}  // namespace marrow
