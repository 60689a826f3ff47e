// Where the tests find the shared sample stores and the oracle tables, and
// scratch folders of their own.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "store/store_reader.h"

namespace marrow::test {

// The shared test data folder, or "" when it is absent.
std::string TestDataDir();

// Full path of a sample given relative to the test data folder.
std::string Sample(const std::string& relative);

// Every real store (paths relative to the test data folder), ANSI, Unicode and 4K.
std::vector<std::string> AllStores();

std::vector<std::uint8_t> ReadFileBytes(const std::string& path);

// A reader over a copy of a sample in memory: a store opened from disk is
// locked, and ctest runs tests that read the same samples side by side.
std::unique_ptr<StoreReader> SampleReader(const std::string& relative,
                                          const std::string& tempFolder = {});

// The rows of tests/data/oracle/<name> without the header line, split at tabs.
std::vector<std::vector<std::string>> OracleTsv(const std::string& name);

// A folder below the test temp folder, named by tag and process, removed with it.
class TempFolder {
 public:
  explicit TempFolder(const std::string& tag);
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  // Writes `bytes` to a file of the folder; returns its path.
  std::string Write(const std::string& name, const std::vector<std::uint8_t>& bytes) const;
  const std::filesystem::path& Dir() const { return dir_; }

 private:
  std::filesystem::path dir_;
};

}  // namespace marrow::test

// Skips the current test with a message when the shared samples are not there.
#define MARROW_REQUIRE_TESTDATA()                                           \
  do {                                                                      \
    if (::marrow::test::TestDataDir().empty())                              \
      GTEST_SKIP() << "shared test data not found at " MARROW_TESTDATA_DIR; \
  } while (0)
