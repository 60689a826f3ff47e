// What a long store operation reports to, and how it learns that it should stop.
#pragma once

#include <string>

namespace marrow {

// The default does nothing and never cancels; the GUI's progress pane and the
// command line's stderr reporter override what they show.
class ProgressSink {
 public:
  virtual ~ProgressSink() = default;
  virtual void SetStepLine(const std::string& text) {}
  virtual void SetStatusLine(const std::string& text) {}
  virtual void SetExplainLine(const std::string& text) {}
  virtual void SetProgress(int percent) {}
  virtual void SetButtonText(const std::string& text) {}
  // While set, the pane's button skips the running step rather than cancelling the run.
  virtual void SetSkipMode(bool on) {}
  // Called between units of work; true asks the running walk to stop.
  virtual bool IsCancelled() { return false; }
};

}  // namespace marrow
