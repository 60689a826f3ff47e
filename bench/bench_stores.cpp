#include "bench/bench_stores.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "store/store_reader.h"

namespace marrow::bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kAnsiSample = "pst/ansi/pst2john_97_outlook_pass12345.pst";

struct Candidate {
  fs::path path;
  std::uintmax_t size;
  bool inOst4k;
  bool largePage;
};

bool IsStoreName(const fs::path& p) {
  std::string ext = p.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return ext == ".pst" || ext == ".ost";
}

void Collect(const fs::path& dir, bool inOst4k, std::vector<Candidate>& out) {
  std::error_code ec;
  for (fs::recursive_directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    if (!it->is_regular_file(ec) || !IsStoreName(it->path())) continue;
    StoreReader reader;
    if (!reader.OpenStore(it->path().string())) continue;
    out.push_back({it->path(), it->file_size(ec), inOst4k, reader.IsLargePage()});
  }
}

}  // namespace

std::vector<BenchStore> SampleStores(const std::string& dataDir) {
  const fs::path root(dataDir);
  std::vector<Candidate> all;
  Collect(root / "pst", false, all);
  Collect(root / "ost", false, all);
  Collect(root / "ost4k", true, all);
  std::sort(all.begin(), all.end(), [](const Candidate& a, const Candidate& b) {
    return a.size != b.size ? a.size > b.size : a.path < b.path;
  });

  std::vector<const Candidate*> picked;
  auto pick = [&](const Candidate& c) {
    if (std::find(picked.begin(), picked.end(), &c) == picked.end()) picked.push_back(&c);
  };
  if (!all.empty()) pick(all.front());
  for (const Candidate& c : all) {
    if (c.inOst4k && c.largePage) pick(c);
  }
  for (const Candidate& c : all) {
    if (!c.largePage) {
      pick(c);
      break;
    }
  }
  for (const Candidate& c : all) {
    if (c.path == root / kAnsiSample) pick(c);
  }
  std::stable_sort(picked.begin(), picked.end(),
                   [](const Candidate* a, const Candidate* b) { return a->size > b->size; });

  std::vector<BenchStore> stores;
  for (const Candidate* c : picked) {
    stores.push_back({c->path.lexically_relative(root).string(), c->path.string()});
  }
  return stores;
}

}  // namespace marrow::bench
