// Any bytes as a snapshot file: its header as it stands, then with the path
// fields naming a store that is there (the input itself) and a temp folder in
// the scratch folder, so that the tests behind the paths are reached; then
// its body read into a fresh reader and, when the header passes, a
// snapshot-mode recovery over it whose folders are listed.
#include <algorithm>
#include <filesystem>
#include <memory>
#include "content/property_values.h"

#include "store/folder_items.h"
#include "store/memory_tree.h"
#include "store/recovery.h"
#include "store/snapshot.h"
#include "store/store_reader.h"
#include "tests/fuzz/fuzz_support.h"

using namespace marrow;
using namespace marrow::fuzz;

namespace {

constexpr std::size_t kSourceField = 4, kTempField = kSourceField + kSnapshotPathField;
constexpr std::size_t kFieldsEnd = kTempField + kSnapshotPathField;

class BoundedProgress final : public ProgressSink {
 public:
  bool IsCancelled() override { return ++calls_ > 200000; }

 private:
  int calls_ = 0;
};

void SetField(Buf& bytes, std::size_t at, const std::string& text) {
  if (bytes.size() < kFieldsEnd) bytes.resize(kFieldsEnd, 0);
  Buf field = Utf8ToUtf16(text);
  field.resize(kSnapshotPathField, 0);
  std::copy(field.begin(), field.end(), bytes.begin() + at);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ScratchFolder scratch;
  Buf bytes(data, data + size);
  const std::string path = scratch.Path() + "/input" + kSnapshotExtension;
  const std::string temp = scratch.Path() + "/temp";
  const std::string storePath = scratch.Path() + "/store.bin";
  WriteFile(storePath, bytes);
  // The header reader creates the temp folder a snapshot names once its
  // source is there; should the input name a source that is, its temp folder
  // is moved into the scratch folder.
  Buf source(bytes.begin() + std::min(size, kSourceField), bytes.begin() + std::min(size, kTempField));
  source.resize(kSnapshotPathField, 0);
  const std::string sourcePath = Utf16ToUtf8(source.data(), source.size());
  std::error_code ec;
  if (!sourcePath.empty() && std::filesystem::exists(sourcePath, ec)) SetField(bytes, kTempField, temp);
  WriteFile(path, bytes);
  SnapshotHeader header;
  std::string error;
  Check(ReadSnapshotHeader(path, header, error) || !error.empty(), "a refused snapshot header gave no reason");

  // The body starts behind the path fields, so these changes leave it alone.
  SetField(bytes, kSourceField, storePath);
  SetField(bytes, kTempField, temp);
  WriteFile(path, bytes);
  const bool magic = std::equal(bytes.begin(), bytes.begin() + 4, kSnapshotMagic);
  Check(ReadSnapshotHeader(path, header, error) == magic,
        "a snapshot header with paths that are there was judged by more than its magic");
  StoreReader reader(scratch.Path());
  Check(reader.OpenSource(std::make_unique<MemorySource>(Buf(data, data + size)), storePath),
        "opening a memory source failed");
  RecoveryState state;
  if (!magic) {
    // What the application would refuse is still read, straight into the lists.
    Check(ReadSnapshotBody(reader, state, path), "a snapshot file that is there cannot be read");
  } else {
    Check(header.sourcePath == storePath && header.tempFolder == temp + "/",
          "a snapshot header's paths read back wrong");
    reader.SetAnsi(header.isAnsi);
    reader.SetLargePage(header.isLargePage);
    state.rawMode = header.rawMode;
    BoundedProgress progress;
    reader.SetProgressSink(&progress);
    MemoryTree tree;
    RecoverStore(reader, state, tree, tree.AddRoot("snapshot", 0), false, path);
    for (std::size_t i = 0; i < state.folders.size() && i < 64; ++i)
      ForEachFolderItem(reader, state, state.folders[i].nodeId, 1, [](const FolderItem&) {});
    reader.SetProgressSink(nullptr);
  }
  std::filesystem::remove(temp);
  std::remove(path.c_str());
  std::remove(storePath.c_str());
  return 0;
}
