// Where the tests find the shared sample stores.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace marrow::test {

// The shared test data folder, or "" when it is absent.
std::string TestDataDir();

// Full path of a sample given relative to the test data folder.
std::string Sample(const std::string& relative);

// Every real store (paths relative to the test data folder), ANSI, Unicode and 4K.
std::vector<std::string> AllStores();

std::vector<std::uint8_t> ReadFileBytes(const std::string& path);

}  // namespace marrow::test

// Skips the current test with a message when the shared samples are not there.
#define MARROW_REQUIRE_TESTDATA()                                                   \
  do {                                                                              \
    if (::marrow::test::TestDataDir().empty())                                      \
      GTEST_SKIP() << "shared test data not found at " MARROW_TESTDATA_DIR;         \
  } while (0)
