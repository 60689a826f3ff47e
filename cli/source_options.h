// The source of tree, list and export: the store file, --mode and --snapshot,
// and opening it in a session with what went wrong printed.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "cli/stderr_progress.h"
#include "session/session.h"

namespace marrow::cli {

struct SourceArgs {
  std::string path;
  std::string snapshot;  // reload this instead of scanning
  std::string mode = "quick";
};

void AddSourceOptions(CLI::App& command, SourceArgs& args);

// Lists the source in `session` and runs its recovery. Prints why it cannot
// be used (and returns false), that a snapshot names another file, or that
// Ctrl-C stopped the scan (the stop is then cleared, so that what follows
// runs whole).
bool OpenSource(Session& session, const SourceArgs& args, StderrProgress& progress);

}  // namespace marrow::cli
