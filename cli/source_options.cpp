#include "cli/source_options.h"

#include <cstdio>

namespace marrow::cli {

void AddSourceOptions(CLI::App& command, SourceArgs& args) {
  command.add_option("--mode", args.mode, "the recovery: quick, advance or raw")
      ->check(CLI::IsMember({"quick", "advance", "raw"}))
      ->option_text("quick|advance|raw");
  command.add_option("--snapshot", args.snapshot, "reload a saved scan instead of scanning")->option_text("F");
}

bool OpenSource(Session& session, const SourceArgs& args, StderrProgress& progress) {
  if (args.snapshot.empty()) {
    const int mode = args.mode == "advance" ? kAdvanceScan : args.mode == "raw" ? kRawScan : kQuickScan;
    session.AddSource(args.path, mode);
  } else {
    std::string error;
    if (!session.AddSnapshot(args.snapshot, error)) {
      std::fprintf(stderr, "marrow-cli: %s\n", error.c_str());
      return false;
    }
    const std::string& named = session.At(session.SourceCount() - 1).Path();
    if (!args.path.empty() && args.path != named) {
      std::fprintf(stderr, "marrow-cli: the snapshot was taken of %s; reading that file\n", named.c_str());
    }
  }
  const RecoveryOutcome outcome = session.Parse(session.SourceCount() - 1);
  if (!outcome.opened) {
    std::fprintf(stderr, "marrow-cli: %s\n", outcome.error.c_str());
    return false;
  }
  if (outcome.cancelled) {
    std::fprintf(stderr, "Stopped by the user; the tree so far follows.\n");
    progress.ClearCancel();
  }
  return true;
}

}  // namespace marrow::cli
