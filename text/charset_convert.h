// Byte conversion between named charsets, through iconv.
#pragma once

#include <iconv.h>

#include <string>
#include <string_view>

namespace marrow {

// The iconv name for a charset as our callers spell it: "ansi" is
// Windows-1252, "utf-16" and "unicode" are UTF-16LE (no byte order mark),
// "unicodefffe" is UTF-16BE and "ks_c_5601-1987" is CP949; any other name is
// handed to iconv as it is.
std::string IconvName(std::string_view charset);

// An iconv converter between two iconv names, reset to its initial state;
// nullptr when iconv does not know both names. Opening one costs more than most
// texts take to convert, so each pair is opened once per thread and kept
// (valid until the next call opens a pair not yet seen).
iconv_t CachedConverter(const std::string& to, const std::string& from);

// True when iconv can convert from and to the charset.
bool CharsetKnown(std::string_view charset);

// Converts `in` between charsets. Bytes the source cannot decode become
// U+FFFD; characters the target cannot hold become U+FFFD where the target
// has it, "?" otherwise (the 8-bit charsets). False only when a name is
// unknown, and then `out` is left empty.
bool ConvertCharsetLossy(std::string_view in, std::string_view from, std::string_view to, std::string* out);

// As ConvertCharsetLossy, but false as soon as anything would be replaced.
bool ConvertCharsetExact(std::string_view in, std::string_view from, std::string_view to, std::string* out);

// Line ends to CRLF (a bare LF gains its CR) and back to LF (every CRLF
// loses its CR). Lone CRs are left alone both ways.
std::string LineEndsToCrlf(std::string_view text);
std::string LineEndsToLf(std::string_view text);

}  // namespace marrow
