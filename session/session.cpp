#include "session/session.h"

#include "store/snapshot.h"

namespace marrow {

Session::Session(ProgressSink* progress) : progress_(progress ? progress : &silent_) {}

Session::~Session() = default;

std::size_t Session::AddSource(const std::string& path, int mode) {
  sources_.push_back(std::make_unique<Source>(path, mode));
  return sources_.size() - 1;
}

bool Session::AddSnapshot(const std::string& snapshotPath, std::string& error) {
  SnapshotHeader header;
  if (!ReadSnapshotHeader(snapshotPath, header, error)) return false;
  sources_.push_back(std::make_unique<Source>(header, snapshotPath));
  return true;
}

RecoveryOutcome Session::Parse(std::size_t index) {
  return sources_[index]->Recover(*progress_);
}

}  // namespace marrow
