// Runs the fuzz target once over each file named on the command line (or
// over every file in a named folder), so that the corpus and every
// reproducer are replayed by ordinary builds without libFuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    std::error_code ec;
    if (fs::is_directory(argv[i], ec)) {
      std::vector<fs::path> found;
      for (const auto& entry : fs::directory_iterator(argv[i], ec)) {
        if (entry.is_regular_file()) found.push_back(entry.path());
      }
      std::sort(found.begin(), found.end());
      inputs.insert(inputs.end(), found.begin(), found.end());
    } else if (fs::is_regular_file(argv[i], ec)) {
      inputs.emplace_back(argv[i]);
    } else {
      std::fprintf(stderr, "no such input: %s\n", argv[i]);
      return 2;
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "usage: %s FILE_OR_FOLDER...\n", argv[0]);
    return 2;
  }
  for (const fs::path& path : inputs) {
    std::ifstream in(path, std::ios::binary);
    std::vector<std::uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in.good() && !in.eof()) {
      std::fprintf(stderr, "cannot read %s\n", path.c_str());
      return 2;
    }
    std::printf("replaying %s (%zu bytes)\n", path.c_str(), data.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(data.data(), data.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return 0;
}
