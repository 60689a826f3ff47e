// What every test suite shares: the sample stores and oracle tables, files
// read whole, scratch folders, stores read from memory and recovered into a
// tree, and the outside readers (Python's email package, GMime) that output
// is read back with.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "store/disk_list.h"
#include "store/memory_tree.h"
#include "store/property_bag.h"
#include "store/recovery_state.h"
#include "store/start_scan.h"
#include "store/store_reader.h"

namespace marrow::test {

using Buf = std::vector<std::uint8_t>;

// The shared test data folder, or "" when it is absent.
std::string TestDataDir();
// Full path of a sample given relative to the test data folder.
std::string Sample(const std::string& relative);
// Every real store (paths relative to the test data folder), ANSI, Unicode and 4K.
std::vector<std::string> AllStores();
// A file under tests/mail/data.
std::string MailFixture(const std::string& name);

// A file's bytes, as text or as a Buf; empty when it cannot be read.
template <class T = std::string>
T ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return T(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The rows of tests/data/oracle/<name> without the header line, each field
// with its \t \n \r \xNN \\ escapes undone; only rows of `fields` fields
// when that is not 0.
std::vector<std::vector<std::string>> OracleRows(const std::string& name, std::size_t fields = 0);

// A folder below the test temp folder, named by tag and process, removed with it.
class TempFolder {
 public:
  explicit TempFolder(const std::string& tag);
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  // Writes `bytes` to a file of the folder; returns its path.
  std::string Write(const std::string& name, std::string_view bytes) const;
  std::string Write(const std::string& name, const Buf& bytes) const {
    return Write(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  }
  const std::filesystem::path& Dir() const { return dir_; }

 private:
  std::filesystem::path dir_;
};

// A fixture with a fresh folder per test.
class ScratchDir : public ::testing::Test, public TempFolder {
 protected:
  ScratchDir();
};

// A reader over a copy of a sample in memory: a store opened from disk is
// locked, and ctest runs tests that read the same samples side by side.
std::unique_ptr<StoreReader> SampleReader(const std::string& relative, const std::string& tempFolder = {});
// Every message node of an open store, by NodeId.
std::map<std::uint32_t, NodeEntry> MessageNodes(StoreReader& reader);
// A message's subnode list and property bag; false when the bag cannot be read.
bool ReadMessage(StoreReader& reader, const NodeEntry& node, SubnodeLists& subnodes, PropertyBag& bag);
// A bag of in-memory values, each (id, type, bytes).
PropertyBag Bag(std::initializer_list<std::tuple<std::uint16_t, std::uint16_t, Buf>> values);
// A disk list of 8-byte records read back from the start.
std::vector<std::uint64_t> Column(DiskList& list);

// A store recovered into a tree of its own, and that tree read back as paths.
struct Recovered {
  std::unique_ptr<StoreReader> reader;
  RecoveryState state;
  MemoryTree tree;
  TreeItem root = 0;
  ScanOutcome outcome;

  // Every item below the root in display order, with its path ("/Top/Inbox").
  std::vector<std::pair<std::string, TreeItem>> Paths() const;
  // The folder row shown as `item`, or null.
  const FolderRecord* RowOf(TreeItem item) const;
};
// One run of the driver over a reader already open and set up.
Recovered RecoverWith(std::unique_ptr<StoreReader> reader, bool retryPass = false, bool rawMode = false);
// A scan started as the application starts one: by path, with the ladder.
Recovered ScanPath(const ScanRequest& request, const std::string& tempFolder = {});

std::string Hex(const std::string& bytes);
// The SHA-256 of a file's bytes, in lowercase hex.
std::string FileSha256(const std::string& path);
// Runs tests/mail/eml_dump.py over the files (one Python start for all) and
// returns each file's lines; empty, with `available` false, when there is no
// python3.
std::vector<std::vector<std::string>> PythonDumps(const std::vector<std::string>& emlPaths, bool* available);
std::vector<std::string> PythonDump(const std::string& emlPath, bool* available);
// The subject of `emlPath` as GMime's own parser decodes it.
std::string GMimeSubject(const std::string& emlPath);

}  // namespace marrow::test

// Skips the current test with a message when the shared samples are not there.
#define MARROW_REQUIRE_TESTDATA()                                                                                    \
  do {                                                                                                               \
    if (::marrow::test::TestDataDir().empty()) GTEST_SKIP() << "shared test data not found at " MARROW_TESTDATA_DIR; \
  } while (0)
