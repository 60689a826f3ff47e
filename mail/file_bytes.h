// Whole-file reads and replace-on-complete writes for the MIME classes.
#pragma once

#include <string>
#include <string_view>

namespace marrow {

// The file's bytes in `out`; false when it cannot be opened or read.
bool ReadWholeFile(const std::string& path, std::string* out);

// Writes `bytes` to a temporary name beside `path` and renames it over
// `path` once complete, so a failed write never leaves half a file behind.
bool WriteWholeFile(const std::string& path, std::string_view bytes);

}  // namespace marrow
