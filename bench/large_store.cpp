#include "bench/large_store.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace fs = std::filesystem;

namespace marrow::bench {

std::string BuildLargeStore(std::uint64_t targetBytes) {
  std::vector<fs::path> sources;
  for (const char* rel :
       {"ost/unicode512/aspose_SampleOstFile.ost", "pst/unicode/aspose_Outlook.pst",
        "pst/unicode/pst2john_2003_high-encryption_quickquick.pst", "pst/unicode/go-pst_support.pst"}) {
    const fs::path p = fs::path(MARROW_TESTDATA_DIR) / rel;
    if (fs::exists(p)) sources.push_back(p);
  }
  if (sources.empty()) return {};
  const std::string out = (fs::temp_directory_path() / "marrow-scan-bench.ost").string();
  if (fs::exists(out) && fs::file_size(out) >= targetBytes) return out;
  std::ofstream file(out, std::ios::binary | std::ios::trunc);
  std::uint64_t written = 0;
  std::vector<std::vector<char>> contents;
  for (const fs::path& p : sources) {
    std::ifstream in(p, std::ios::binary);
    contents.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  const std::vector<char> zeros(0x10000, 0);
  for (std::size_t i = 0; written < targetBytes; ++i) {
    const std::vector<char>& c = contents[i % contents.size()];
    file.write(c.data(), static_cast<std::streamsize>(c.size()));
    written += c.size();
    const std::uint64_t pad = (0x10000 - written % 0x10000) % 0x10000;
    file.write(zeros.data(), static_cast<std::streamsize>(pad));
    written += pad;
  }
  return out;
}

}  // namespace marrow::bench
