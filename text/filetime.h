// FILETIME (100 ns since 1601-01-01, UTC) to Unix time and local date text.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace marrow {

// A FILETIME as seconds since 1970.
inline std::int64_t FiletimeToUnixSeconds(std::uint64_t filetime) {
  return static_cast<std::int64_t>(filetime / 10000000) - 11644473600LL;
}

// Unix seconds as local time in strftime `format`; "" when the time cannot
// be shown.
std::string LocalTimeText(std::time_t t, const char* format);
// The same, also "" when the local year is not past 1900.
std::string LocalTimeTextAfter1900(std::time_t t, const char* format);

}  // namespace marrow
