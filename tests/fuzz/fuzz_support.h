// What the fuzz targets share: aborting on a broken promise, and a private
// scratch folder per input that must be empty again when the input is done.
// Include from the target's one source file only (it defines the sanitizer
// options).
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace marrow::fuzz {

using Buf = std::vector<std::uint8_t>;

[[noreturn]] inline void Fail(const char* what) {
  std::fprintf(stderr, "fuzz: %s\n", what);
  std::abort();
}

inline void Check(bool ok, const char* what) {
  if (!ok) Fail(what);
}

inline void WriteFile(const std::string& path, const Buf& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) Fail("cannot write a scratch file");
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  if (std::fclose(f) != 0 || !ok) Fail("cannot write a scratch file");
}

// In /tmp or the folder FUZZ_SCRATCH names (a memory file system makes the
// store target three times faster). TMPDIR points at it while it lives, so
// that a disk list left behind is seen too.
class ScratchFolder {
 public:
  ScratchFolder() {
    const char* base = std::getenv("FUZZ_SCRATCH");
    path_ = std::string(base != nullptr && *base != 0 ? base : "/tmp") + "/marrow-fuzz-XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) Fail("cannot create the scratch folder");
    if (const char* old = std::getenv("TMPDIR")) oldTemp_ = old;
    ::setenv("TMPDIR", path_.c_str(), 1);
  }
  ~ScratchFolder() {
    std::error_code ec;
    bool empty = true;
    for (const auto& entry : std::filesystem::directory_iterator(path_, ec)) {
      std::fprintf(stderr, "fuzz: left behind: %s\n", entry.path().filename().c_str());
      empty = false;
    }
    Check(!ec && empty, "scratch files were left in the scratch folder");
    oldTemp_ ? ::setenv("TMPDIR", oldTemp_->c_str(), 1) : ::unsetenv("TMPDIR");
    ::rmdir(path_.c_str());
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  std::optional<std::string> oldTemp_;
};

}  // namespace marrow::fuzz

// Undefined behaviour must stop the run like a crash, whatever flags the
// library was built with; without sanitizers nothing reads this.
extern "C" const char* __ubsan_default_options() {
  return "halt_on_error=1:print_stacktrace=1";
}
