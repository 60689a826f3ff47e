// Scratch folders, fixture paths and the outside readers (Python's email
// package, GMime) that the mail and content tests check our output with.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace marrow::test {

// A fresh folder per test, removed afterwards.
class ScratchDir : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  // Writes `bytes` to a file of the folder; returns its path.
  std::string Write(const std::string& name, std::string_view bytes) const;
  std::filesystem::path dir_;
};

// A file under tests/mail/data.
std::string MailFixture(const std::string& name);

std::string ReadText(const std::string& path);

std::string Hex(const std::string& bytes);

// Runs tests/mail/eml_dump.py over the files (one Python start for all) and
// returns each file's lines; empty, with `available` false, when there is no
// python3.
std::vector<std::vector<std::string>> PythonDumps(const std::vector<std::string>& emlPaths,
                                                  bool* available);
std::vector<std::string> PythonDump(const std::string& emlPath, bool* available);

// The subject of `emlPath` as GMime's own parser decodes it.
std::string GMimeSubject(const std::string& emlPath);

}  // namespace marrow::test
