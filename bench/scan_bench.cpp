// Times the whole-file scan on a large store and reports MB/s and peak memory.
//
//   marrow-bench-scan [--size-mb N] [--keep] [STORE]
//
// Without STORE it builds one of at least N MiB (default 1024) in the temp
// folder: real sample stores laid end to end, each starting on a 64 KiB
// boundary with zero filler between, in the form of the first sample, so the
// scan meets real pages and real block trailers throughout.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/large_store.h"
#include "store/lost_item_scanner.h"
#include "store/store_reader.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  std::uint64_t sizeMb = 1024;
  bool keep = false;
  std::string path;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--size-mb" && i + 1 < argc) {
      sizeMb = std::strtoull(argv[++i], nullptr, 10);
    } else if (a == "--keep") {
      keep = true;
    } else {
      path = a;
    }
  }
  const bool built = path.empty();
  if (built) {
    path = marrow::bench::BuildLargeStore(sizeMb << 20);
    if (path.empty()) {
      std::fprintf(stderr, "no sample stores under %s; pass a store path\n", MARROW_TESTDATA_DIR);
      return 0;
    }
  }
  marrow::StoreReader reader;
  if (!reader.OpenStore(path)) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), reader.LastError().c_str());
    return 1;
  }
  marrow::LostItemScanner scan(reader);
  const auto start = std::chrono::steady_clock::now();
  scan.ScanFile();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  const double mb = static_cast<double>(reader.FileSize()) / (1 << 20);
  std::printf(
      "scanned %s: %.0f MiB in %.2f s = %.1f MiB/s; peak memory %.1f MiB; "
      "rows: %u folder, %u message; blocks: %u\n",
      path.c_str(), mb, seconds, mb / seconds, usage.ru_maxrss / 1024.0, scan.folders.RecordCount(),
      scan.messages.RecordCount(), scan.blocks.RecordCount());

  // Deep look-ups after the scan: a pass over the block list is what
  // one look-up costs without the sorted index; with it, the first look-up
  // builds the index and the rest are binary searches.
  auto now = [] { return std::chrono::steady_clock::now(); };
  auto since = [](auto t) { return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count(); };
  auto t = now();
  std::vector<std::uint64_t> ids;
  scan.blocks.Rewind();
  marrow::ScannedBlockRow block;
  for (std::uint64_t row = 0; scan.blocks.Next(block); ++row) {
    if (ids.size() < 100000 && row % 3 == 0) ids.push_back(block.blockId ^ (row % 2));  // half of them absent
  }
  const double pass = since(t);
  std::uint64_t offset = 0, size = 0;
  t = now();
  scan.ScanFindBlock(ids.empty() ? 0 : ids[0], offset, size);
  const double build = since(t);
  t = now();
  std::size_t found = 0;
  for (std::uint64_t x : ids) found += scan.ScanFindBlock(x, offset, size);
  const double lookups = since(t);
  getrusage(RUSAGE_SELF, &usage);
  std::printf(
      "block look-ups: one pass over the lists %.1f ms; index built in %.1f ms; %zu look-ups "
      "(%zu found) in %.3f s = %.2f us each; peak memory %.1f MiB\n",
      pass * 1e3, build * 1e3, ids.size(), found, lookups, ids.empty() ? 0.0 : lookups * 1e6 / ids.size(),
      usage.ru_maxrss / 1024.0);
  if (built && !keep) fs::remove(path);
  return 0;
}
