#include "cli/stderr_progress.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>

namespace marrow::cli {
namespace {

std::atomic<bool> g_interrupted{false};

void OnInterrupt(int) {
  g_interrupted.store(true);
}

long long NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

StderrProgress::StderrProgress() : tty_(isatty(STDERR_FILENO) != 0) {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  action.sa_flags = SA_RESETHAND;  // the second Ctrl-C is not caught
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
}

StderrProgress::~StderrProgress() {
  if (tty_ && percent_ >= 0) std::fputc('\n', stderr);
  std::signal(SIGINT, SIG_DFL);
}

void StderrProgress::SetStepLine(const std::string& text) {
  if (text == step_) return;
  step_ = text;
  if (text.empty()) return;
  if (tty_ && percent_ >= 0) std::fputc('\n', stderr);
  percent_ = -1;
  std::fprintf(stderr, "%s\n", text.c_str());
}

void StderrProgress::SetExplainLine(const std::string& text) {
  if (!text.empty()) std::fprintf(stderr, "  %s\n", text.c_str());
}

void StderrProgress::SetStatusLine(const std::string& text) {
  status_ = text;
  Redraw();
}

void StderrProgress::SetProgress(int percent) {
  percent_ = percent;
  Redraw();
}

void StderrProgress::Redraw() {
  // Only a terminal gets the running line; a log gets the steps alone.
  if (!tty_ || percent_ < 0) return;
  const long long now = NowMs();
  if (now - lastDraw_ < 200) return;
  lastDraw_ = now;
  constexpr int kWidth = 24;
  const int filled = std::clamp(percent_, 0, 100) * kWidth / 100;
  const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
  std::fprintf(stderr, "\r  [%s] %3d%%  %-48.48s", bar.c_str(), percent_, status_.c_str());
  std::fflush(stderr);
}

bool StderrProgress::IsCancelled() {
  return g_interrupted.load();
}

bool StderrProgress::WasCancelled() const {
  return g_interrupted.load();
}

void StderrProgress::ClearCancel() {
  g_interrupted.store(false);
}

}  // namespace marrow::cli
