// Compressed RTF bodies (property 0x1009) to RTF files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "store/property_bag.h"

namespace marrow {

// Decompresses an "LZFu" (or "MELA", taken the same way) value into
// `outPath`. The run stops by the size fields, a little before the stream's
// own end, and "}}" closes the groups whenever anything was written.
// True when a file was written.
bool DecompressRtf(const std::uint8_t* bytes, std::size_t size, const std::string& outPath);

// True when the first 64 KiB hold "rtf" and more than five "{" or "}".
bool CheckRtfFile(const std::string& path);

// The RTF body of a bag (0x1009, binary) as a checked RTF file at
// `outPath`; a file that does not pass is deleted.
bool WriteRtfBody(const PropertyBag& bag, const std::string& outPath);

}  // namespace marrow
