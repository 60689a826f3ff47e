#include "tests/support/test_data.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

namespace marrow::test {

std::string TestDataDir() {
  std::error_code ec;
  return fs::is_directory(MARROW_TESTDATA_DIR, ec) ? std::string(MARROW_TESTDATA_DIR)
                                                   : std::string();
}

std::string Sample(const std::string& relative) {
  return std::string(MARROW_TESTDATA_DIR) + "/" + relative;
}

std::vector<std::string> AllStores() {
  std::vector<std::string> out;
  const std::string root = TestDataDir();
  if (root.empty()) return out;
  for (const char* dir : {"pst/ansi", "pst/unicode", "ost/unicode512", "ost4k"}) {
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(root + "/" + dir, ec)) {
      const std::string ext = entry.path().extension().string();
      if (ext == ".pst" || ext == ".ost")
        out.push_back(std::string(dir) + "/" + entry.path().filename().string());
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

std::vector<std::uint8_t> ReadFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in),
                                   std::istreambuf_iterator<char>());
}

std::unique_ptr<StoreReader> SampleReader(const std::string& relative,
                                          const std::string& tempFolder) {
  auto reader = std::make_unique<StoreReader>(tempFolder);
  EXPECT_TRUE(reader->OpenSource(std::make_unique<MemorySource>(ReadFileBytes(Sample(relative))),
                                 relative));
  return reader;
}

std::vector<std::vector<std::string>> OracleTsv(const std::string& name) {
  std::ifstream in(std::string(MARROW_SOURCE_DIR) + "/tests/data/oracle/" + name);
  std::vector<std::vector<std::string>> rows;
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::vector<std::string> fields;
    std::stringstream cells(line);
    for (std::string s; std::getline(cells, s, '\t');) fields.push_back(s);
    rows.push_back(std::move(fields));
  }
  return rows;
}

TempFolder::TempFolder(const std::string& tag)
    : dir_(fs::path(::testing::TempDir()) / ("marrow-" + tag + "-" + std::to_string(::getpid()))) {
  fs::remove_all(dir_);
  fs::create_directories(dir_);
}

TempFolder::~TempFolder() {
  std::error_code ec;
  fs::remove_all(dir_, ec);
}

std::string TempFolder::Write(const std::string& name,
                              const std::vector<std::uint8_t>& bytes) const {
  const std::string path = Path(name);
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  return path;
}

}  // namespace marrow::test
