// Any bytes as a compressed RTF body.
#include <filesystem>

#include "content/rtf_body.h"
#include "tests/fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace marrow;
  const fuzz::ScratchFolder scratch;
  const std::string out = scratch.Path() + "/raw.rtf";
  if (DecompressRtf(data, size, out)) {
    std::error_code ec;
    // Each input byte gives at most 17 output bytes (a reference), plus the closing braces.
    fuzz::Check(std::filesystem::file_size(out, ec) <= 17 * std::uintmax_t{size} + 2 && !ec,
                "RTF output larger than its input allows");
    CheckRtfFile(out);
  }
  std::remove(out.c_str());
  return 0;
}
