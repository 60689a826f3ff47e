// Times the whole recovery (all six steps and the item listing of every
// folder) on a large store, step by step, and reports peak memory.
//
//   marrow-bench-recover [--size-mb N] [--keep] [--mode quick|advance|raw] [STORE]
//
// Without STORE it uses the store marrow-bench-scan builds (see README.md).
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/large_store.h"
#include "store/folder_items.h"
#include "store/memory_tree.h"
#include "store/recovery_state.h"
#include "store/start_scan.h"
#include "store/store_reader.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double PeakMiB() {
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024.0;
}

// Notes the time at which each step line appears.
class StepClock : public marrow::ProgressSink {
 public:
  void SetStepLine(const std::string& text) override {
    if (text.empty() || (!steps.empty() && steps.back().first == text)) return;
    steps.emplace_back(text, Clock::now());
  }
  std::vector<std::pair<std::string, Clock::time_point>> steps;
};

}  // namespace

int main(int argc, char** argv) {
  std::uint64_t sizeMb = 1024;
  bool keep = false;
  int mode = marrow::kQuickScan;
  std::string path;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--size-mb" && i + 1 < argc) {
      sizeMb = std::strtoull(argv[++i], nullptr, 10);
    } else if (a == "--keep") {
      keep = true;
    } else if (a == "--mode" && i + 1 < argc) {
      const std::string m = argv[++i];
      mode = m == "raw" ? marrow::kRawScan : m == "advance" ? marrow::kAdvanceScan : marrow::kQuickScan;
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
  StepClock clock;
  marrow::StoreReader reader;
  marrow::RecoveryState recovery;
  reader.SetProgressSink(&clock);
  marrow::MemoryTree tree;
  const marrow::TreeItem root = tree.AddRoot(path, 9);
  marrow::ScanRequest request;
  request.sourcePath = path;
  request.mode = mode;
  const Clock::time_point start = Clock::now();
  const marrow::ScanOutcome outcome = marrow::StartScan(reader, recovery, tree, root, request);
  const Clock::time_point recovered = Clock::now();
  if (!outcome.opened) {
    std::fprintf(stderr, "%s: %s\n", path.c_str(), outcome.errorText.c_str());
    return 1;
  }
  const double peakAfterRecovery = PeakMiB();

  std::uint64_t shown = 0, indexItems = 0, lostItems = 0, lostFolders = 0;
  for (const marrow::FolderRecord& f : recovery.folders) {
    if (f.treeItem == marrow::kNoTreeItem || tree.Find(f.treeItem) == nullptr) continue;
    ++shown;
    lostFolders += f.isLost;
    marrow::ForEachFolderItem(reader, recovery, f.nodeId, 1,
                              [&](const marrow::FolderItem& item) { (item.isLost ? lostItems : indexItems) += 1; });
  }
  const Clock::time_point listed = Clock::now();

  auto seconds = [](Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); };
  const double mib = static_cast<double>(reader.FileSize()) / (1 << 20);
  std::printf("recovered %s (%.0f MiB), %d run(s): %.2f s = %.1f MiB/s\n", path.c_str(), mib, outcome.runs,
              seconds(start, recovered), mib / seconds(start, recovered));
  for (std::size_t i = 0; i < clock.steps.size(); ++i) {
    const Clock::time_point end = i + 1 < clock.steps.size() ? clock.steps[i + 1].second : recovered;
    std::printf("  %-16s %8.2f s\n", clock.steps[i].first.c_str(), seconds(clock.steps[i].second, end));
  }
  std::printf("  item listing     %8.2f s\n", seconds(recovered, listed));
  std::printf("folders shown %llu (lost %llu); items: %llu from the index, %llu lost\n",
              static_cast<unsigned long long>(shown), static_cast<unsigned long long>(lostFolders),
              static_cast<unsigned long long>(indexItems), static_cast<unsigned long long>(lostItems));
  std::printf("peak memory %.1f MiB after the recovery, %.1f MiB after the listing\n", peakAfterRecovery, PeakMiB());
  if (built && !keep) fs::remove(path);
  return 0;
}
