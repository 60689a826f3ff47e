// Which stores the benchmarks measure.
#pragma once

#include <string>
#include <vector>

namespace marrow::bench {

struct BenchStore {
  std::string label;  // path relative to the sample folder, or as given
  std::string path;
};

// From the shared sample folder: the largest store, every 4096-byte-page
// store of ost4k/, the largest 512-byte-page store and the ANSI pst2john
// store, each once, largest first. Empty when the folder holds no store.
std::vector<BenchStore> SampleStores(const std::string& dataDir);

}  // namespace marrow::bench
