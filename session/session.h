// What a front end opens and asks for: store files in opening order, each
// pending until it is parsed, the recovery runs, and snapshots. The rows,
// previews, find and save jobs over it have files of their own.
//
// Progress of every run goes to one ProgressSink (step text, status line,
// bar percent) on the thread that makes the call, and its IsCancelled is
// asked between units of work. A GUI runs the session on a worker thread and
// forwards the calls as queued signals; its Cancel button sets the flag
// IsCancelled reads.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "session/source.h"
#include "store/progress_sink.h"

namespace marrow {

class Session {
 public:
  // `progress` is not owned; null reports nowhere and never cancels.
  explicit Session(ProgressSink* progress = nullptr);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Lists a store file, to be scanned in `mode` (RecoveryMode) when parsed.
  std::size_t AddSource(const std::string& path, int mode = kQuickScan);
  // Lists the store file a snapshot names, to be reloaded from the snapshot
  // when parsed. False, with `error` the text to show, when the snapshot's
  // header cannot be used; nothing is listed then.
  bool AddSnapshot(const std::string& snapshotPath, std::string& error);

  std::size_t SourceCount() const { return sources_.size(); }
  Source& At(std::size_t index) { return *sources_[index]; }
  // Parses a pending source; a parsed one keeps its first outcome.
  RecoveryOutcome Parse(std::size_t index);

  ProgressSink& Progress() { return *progress_; }

 private:
  ProgressSink silent_;
  ProgressSink* progress_;
  std::vector<std::unique_ptr<Source>> sources_;
};

}  // namespace marrow
