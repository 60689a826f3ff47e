// Snapshot files: what a scan found, kept so that a source can be reopened
// without scanning it again. The file points at the source and the temp
// folder; it does not copy them.
#pragma once

#include <cstdint>
#include <string>

namespace marrow {

class StoreReader;
struct RecoveryState;

// Fixed header fields.
constexpr char kSnapshotMagic[4] = {'V', 'O', 'R', 'P'};
constexpr std::size_t kSnapshotPathField = 520;  // bytes of UTF-16LE
constexpr std::size_t kSnapshotPathChars = 259;  // what a path may use of it
constexpr std::size_t kSnapshotNodeCountOffset = 1076;
constexpr const char* kSnapshotExtension = ".vorsnp";

struct SnapshotHeader {
  std::string sourcePath;
  std::string tempFolder;
  std::uint64_t sourceSize = 0;
  int isAnsi = 0;
  bool isLargePage = false;
  bool rawMode = false;
};

// Writes the reader's form and scan lists and what the recovery found: index
// rows and folder rows. Silent; a file that cannot be created is not made.
void WriteSnapshot(StoreReader& reader, const RecoveryState& state, const std::string& path);

// Reads and checks the header. The temp folder is created when missing.
// False with `error` set to the text to show.
bool ReadSnapshotHeader(const std::string& path, SnapshotHeader& header, std::string& error);

// Fills the reader's scan lists and the state's rows from the file. False
// only when it cannot be opened.
bool ReadSnapshotBody(StoreReader& reader, RecoveryState& state, const std::string& path);

}  // namespace marrow
