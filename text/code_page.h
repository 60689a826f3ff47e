// Windows code pages: their iconv names, the code page a locale or an
// internet code page implies, and 8-bit text read as UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace marrow {

constexpr unsigned kDefaultCodePage = 1252;  // 8-bit text when the item names no code page

// The iconv name of a Windows code page.
std::string CodePageCharset(unsigned codePage);
// The Windows code page of a locale's 8-bit text; 0 when the locale has none
// of its own (Windows-1252 is then taken).
unsigned LocaleCodePage(std::uint32_t lcid);
// The Windows code page of the script an internet code page writes; 0 when
// it gives no hint (Western and Unicode charsets).
unsigned InternetCodePageFamily(std::uint32_t cpid);
// 8-bit text in `codePage` up to the first NUL, as UTF-8. A code page iconv
// does not know is read as the default one; unmapped bytes become U+FFFD.
std::string CodePageToUtf8(const std::uint8_t* bytes, std::size_t size, unsigned codePage);

}  // namespace marrow
