// Speed of the two index walks everything else stands on: the folder rows of
// the node index, and block look-ups in the block index.
//
//   marrow-bench-index [benchmark flags] [STORE...]
//
// With no STORE and no MARROW_BENCH_STORE, measures the shared sample stores.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/bench_stores.h"
#include "store/block_index_walk.h"
#include "store/byte_source.h"
#include "store/store_reader.h"

namespace marrow::bench {
namespace {

// What the untimed check learnt about one store.
struct StoreFacts {
  BenchStore store;
  std::vector<BlockEntry> blocks;
  std::size_t pageSize = 0;
  std::size_t found = 0;
  std::size_t folders = 0;
  bool ok = false;
};

// Lists the block index, looks every listed block up with FindBlock and
// builds the folder rows; prints one line, plus one per disagreement.
bool CheckStore(StoreFacts& facts) {
  StoreReader reader;
  if (!reader.OpenStore(facts.store.path)) {
    std::fprintf(stderr, "%s: cannot open (%s)\n", facts.store.path.c_str(), reader.LastError().c_str());
    return false;
  }
  ForEachBlockEntry(reader, [&facts](const BlockEntry& e) { facts.blocks.push_back(e); });
  facts.pageSize = LayoutFor(reader.IsAnsi() != 0, reader.IsLargePage()).pageSize;

  std::unordered_map<std::uint64_t, int> seen;
  for (const BlockEntry& e : facts.blocks) ++seen[e.blockId];
  const std::size_t repeated = facts.blocks.size() - seen.size();

  std::vector<std::string> problems;
  for (const BlockEntry& e : facts.blocks) {
    VisitedSet visited;
    std::uint64_t offset = 0, size = 0;
    const bool hit = reader.FindBlock(reader.BlockRoot(), e.blockId, offset, size, visited);
    if (hit && offset == e.fileOffset && size == e.size) {
      ++facts.found;
      continue;
    }
    char line[160];
    if (hit) {
      std::snprintf(line, sizeof line,
                    "  block 0x%" PRIx64 ": row says 0x%" PRIx64 " +%u, FindBlock gave 0x%" PRIx64 " +%" PRIu64,
                    e.blockId, e.fileOffset, unsigned{e.size}, offset, size);
    } else {
      std::snprintf(line, sizeof line, "  block 0x%" PRIx64 ": row says 0x%" PRIx64 " +%u, FindBlock found nothing",
                    e.blockId, e.fileOffset, unsigned{e.size});
    }
    problems.push_back(line);
  }

  facts.folders = reader.ReadFolderRows().size();
  facts.ok = problems.empty() && !facts.blocks.empty();

  std::fprintf(stderr, "%s: %s, %zu-byte pages; %zu blocks enumerated, %zu found, %zu folders%s\n",
               facts.store.label.c_str(), reader.IsAnsi() ? "ANSI" : "Unicode", facts.pageSize, facts.blocks.size(),
               facts.found, facts.folders, facts.ok ? "" : "  <-- MISMATCH");
  if (repeated != 0) std::fprintf(stderr, "  %zu block ids appear in more than one row\n", repeated);
  constexpr std::size_t kShown = 20;
  for (std::size_t i = 0; i < problems.size() && i < kShown; ++i) {
    std::fprintf(stderr, "%s\n", problems[i].c_str());
  }
  if (problems.size() > kShown) {
    std::fprintf(stderr, "  ... and %zu more\n", problems.size() - kShown);
  }
  return facts.ok;
}

// The reader is opened for each iteration but only the walk is timed.
void BuildFolderRows(benchmark::State& state, const StoreFacts* facts) {
  std::size_t folders = 0;
  for (auto _ : state) {
    StoreReader reader;
    if (!reader.OpenStore(facts->store.path)) {
      state.SkipWithError("cannot open the store");
      break;
    }
    const auto start = std::chrono::steady_clock::now();
    const std::vector<FolderRow> rows = reader.ReadFolderRows();
    const auto stop = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(rows.data());
    state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    folders = rows.size();
  }
  state.counters["folders"] = static_cast<double>(folders);
}

void OpenAndBuildFolderRows(benchmark::State& state, const StoreFacts* facts) {
  for (auto _ : state) {
    StoreReader reader;
    if (!reader.OpenStore(facts->store.path)) {
      state.SkipWithError("cannot open the store");
      break;
    }
    const std::vector<FolderRow> rows = reader.ReadFolderRows();
    benchmark::DoNotOptimize(rows.data());
  }
}

// One iteration looks up every block of the index, each with a fresh
// VisitedSet. Cold: the reader's memo of look-ups is cleared first, so every
// look-up descends the index; warm: every look-up is answered from the memo.
void FindEveryBlockWith(benchmark::State& state, const StoreFacts* facts, StoreReader& reader, bool warm = false) {
  std::uint64_t pagesRead = 0;
  if (warm) {
    for (const BlockEntry& e : facts->blocks) {
      VisitedSet visited;
      std::uint64_t offset = 0, size = 0;
      reader.FindBlock(reader.BlockRoot(), e.blockId, offset, size, visited);
    }
  }
  for (auto _ : state) {
    if (!warm) {
      state.PauseTiming();
      reader.ForgetBlockLookups();
      state.ResumeTiming();
    }
    for (const BlockEntry& e : facts->blocks) {
      VisitedSet visited;
      std::uint64_t offset = 0, size = 0;
      bool hit = reader.FindBlock(reader.BlockRoot(), e.blockId, offset, size, visited);
      benchmark::DoNotOptimize(hit);
      benchmark::DoNotOptimize(offset);
      benchmark::DoNotOptimize(size);
      pagesRead += visited.size();
    }
  }
  const auto lookups = static_cast<std::int64_t>(state.iterations() * facts->blocks.size());
  state.SetItemsProcessed(lookups);
  state.SetBytesProcessed(static_cast<std::int64_t>(pagesRead * facts->pageSize));
  state.counters["blocks"] = static_cast<double>(facts->blocks.size());
  state.counters["pages/lookup"] = lookups == 0 ? 0.0 : static_cast<double>(pagesRead) / static_cast<double>(lookups);
}

void FindEveryBlock(benchmark::State& state, const StoreFacts* facts) {
  StoreReader reader;
  if (!reader.OpenStore(facts->store.path)) {
    state.SkipWithError("cannot open the store");
    return;
  }
  FindEveryBlockWith(state, facts, reader);
}

void FindEveryBlockWarm(benchmark::State& state, const StoreFacts* facts) {
  StoreReader reader;
  if (!reader.OpenStore(facts->store.path)) {
    state.SkipWithError("cannot open the store");
    return;
  }
  FindEveryBlockWith(state, facts, reader, true);
}

// The same over a copy of the file in memory: the difference is the cost of
// the reads from the file.
void FindEveryBlockInMemory(benchmark::State& state, const StoreFacts* facts) {
  std::ifstream in(facts->store.path, std::ios::binary);
  if (!in) {
    state.SkipWithError("cannot read the store");
    return;
  }
  std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  StoreReader reader;
  reader.OpenSource(std::make_unique<MemorySource>(std::move(bytes)), facts->store.path);
  FindEveryBlockWith(state, facts, reader);
}

}  // namespace
}  // namespace marrow::bench

int main(int argc, char** argv) {
  using namespace marrow::bench;
  benchmark::Initialize(&argc, argv);

  std::vector<BenchStore> stores;
  for (int i = 1; i < argc; ++i) {
    if (argv[i][0] == '-') {
      std::fprintf(stderr, "marrow-bench-index: unknown option %s\n", argv[i]);
      return 1;
    }
    stores.push_back({std::filesystem::path(argv[i]).filename().string(), argv[i]});
  }
  if (const char* env = std::getenv("MARROW_BENCH_STORE"); stores.empty() && env && *env) {
    stores.push_back({std::filesystem::path(env).filename().string(), env});
  }
  if (stores.empty()) {
    stores = SampleStores(MARROW_TESTDATA_DIR);
    if (stores.empty()) {
      std::fprintf(stderr,
                   "marrow-bench-index: no sample stores found under %s; nothing measured.\n"
                   "Pass a store path or set MARROW_BENCH_STORE.\n",
                   MARROW_TESTDATA_DIR);
      return 0;
    }
  }

  // Checked before anything is registered; each reader is closed again
  // because an open store holds an exclusive lock.
  std::vector<std::unique_ptr<StoreFacts>> all;
  int failed = 0;
  for (const BenchStore& store : stores) {
    auto facts = std::make_unique<StoreFacts>();
    facts->store = store;
    if (!CheckStore(*facts)) ++failed;
    if (facts->pageSize == 0) return 1;  // could not be opened
    all.push_back(std::move(facts));
  }

  for (const auto& facts : all) {
    const std::string& label = facts->store.label;
    benchmark::RegisterBenchmark(("BuildFolderRows/" + label).c_str(), BuildFolderRows, facts.get())
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(("OpenAndBuildFolderRows/" + label).c_str(), OpenAndBuildFolderRows, facts.get())
        ->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark(("FindEveryBlock/" + label).c_str(), FindEveryBlock, facts.get())
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("FindEveryBlockInMemory/" + label).c_str(), FindEveryBlockInMemory, facts.get())
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("FindEveryBlockWarm/" + label).c_str(), FindEveryBlockWarm, facts.get())
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  if (failed != 0) {
    std::fprintf(stderr, "marrow-bench-index: the block index check failed for %d store(s)\n", failed);
    return 1;
  }
  return 0;
}
