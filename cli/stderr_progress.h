// Progress of a long run on stderr, and Ctrl-C as the Cancel button.
#pragma once

#include <string>

#include "store/progress_sink.h"

namespace marrow::cli {

class StderrProgress final : public ProgressSink {
 public:
  // Installs the Ctrl-C handler; a second Ctrl-C ends the process at once.
  StderrProgress();
  ~StderrProgress() override;

  void SetStepLine(const std::string& text) override;
  void SetStatusLine(const std::string& text) override;
  void SetExplainLine(const std::string& text) override;
  void SetProgress(int percent) override;
  bool IsCancelled() override;

  bool WasCancelled() const;
  // Ends the stop request, so that what follows (listing the tree) runs whole.
  // A second Ctrl-C still ends the process.
  void ClearCancel();

 private:
  void Redraw();

  bool tty_;
  std::string step_;
  std::string status_;
  int percent_ = -1;
  long long lastDraw_ = 0;
};

}  // namespace marrow::cli
