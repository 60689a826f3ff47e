#include "tests/support/test_data.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace marrow::test {

std::string TestDataDir() {
  std::error_code ec;
  return fs::is_directory(MARROW_TESTDATA_DIR, ec) ? std::string(MARROW_TESTDATA_DIR) : std::string();
}

std::string Sample(const std::string& relative) { return std::string(MARROW_TESTDATA_DIR) + "/" + relative; }

std::vector<std::string> AllStores() {
  std::vector<std::string> out;
  const std::string root = TestDataDir();
  if (root.empty()) return out;
  for (const char* dir : {"pst/ansi", "pst/unicode", "ost/unicode512", "ost4k"}) {
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(root + "/" + dir, ec)) {
      const std::string ext = entry.path().extension().string();
      if (ext == ".pst" || ext == ".ost") out.push_back(std::string(dir) + "/" + entry.path().filename().string());
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace marrow::test
