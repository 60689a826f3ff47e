#include "saving/save_pipeline.h"

#include <cctype>
#include <cstdio>
#include <filesystem>

#include "saving/save_filter.h"
#include "store/ascii_case.h"
#include "store/store_reader.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

// The longest output folder path, in characters, a save makes.
constexpr std::size_t kMaxOutputPath = 245;

// Characters, not bytes: UTF-8 continuation bytes are not counted.
std::size_t CharacterCount(const std::string& s) {
  std::size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

bool IsTopFolder(const std::string& upper) {
  return upper == "IPM_SUBTREE" || upper == "TOP OF PERSONAL FOLDERS" || upper == "TOP OF OUTLOOK DATA FILE";
}

}  // namespace

std::string SafePathComponent(const std::string& name) {
  std::string out = name;
  for (char& c : out) {
    if (c == '/' || c == ':' || c == '*' || c == '?' || c == '"' || c == '<' || c == '>' || c == '|' || c == '\0') {
      c = '_';
    }
  }
  if (out.empty() || out == "." || out == "..") out = "_";
  return out;
}

SavePipeline::SavePipeline(StoreReader& reader, TreeSink& tree, TreeItem storeItem, const ProfileStore& profile)
    : reader_(reader), tree_(tree), storeItem_(storeItem), profile_(profile) {}

void SavePipeline::SetConversion(ItemConversion convert, NonMailRebuild rebuild) {
  convert_ = std::move(convert);
  rebuild_ = std::move(rebuild);
}

bool SavePipeline::Cancelled() { return reader_.Cancelled(); }

SaveEnd SavePipeline::SaveStore(const SaveOptions& options) {
  options_ = &options;
  walkFailed_ = false;
  failure_.clear();
  itemsWritten_ = 0;
  destination_ = options.destinationPath;
  if (!destination_.empty() && destination_.back() != '/') destination_ += '/';

  SaveEnd end;
  if (options.kind != kOutputEml && options.kind != kOutputMbox) {
    end.failed = true;
    end.message = "This output is not available yet.";
    return end;
  }
  // Each store gets a folder of its own, named after the source file, so a
  // rerun never meets old output.
  if (!options.singleStore) {
    const std::string base = fs::path(reader_.sourcePath).filename().string();
    std::string name = base;
    std::error_code ec;
    for (int n = 1; fs::exists(destination_ + name, ec); ++n) name = base + "(" + std::to_string(n) + ")";
    destination_ += SafePathComponent(name) + "/";
  }
  WalkCheckedFolders();
  mbox_.Close();
  end.cancelled = Cancelled();
  end.failed = walkFailed_;
  end.message = failure_;
  end.destination = destination_;
  end.itemsWritten = itemsWritten_;
  return end;
}

std::string SavePipeline::RelativePath(TreeItem folder, std::vector<std::string>* names) const {
  const std::string root = AsciiUpper(profile_.GetText(kFolderRootKey, ""));
  std::vector<std::string> parts{tree_.Text(folder)};
  for (TreeItem at = tree_.Parent(folder); at != 0 && at != storeItem_; at = tree_.Parent(at)) {
    const std::string name = tree_.Text(at);
    if (name.empty()) continue;
    const std::string upper = AsciiUpper(name);
    if (IsTopFolder(upper) || (!root.empty() && upper == root)) break;
    parts.insert(parts.begin(), name);
  }
  if (names != nullptr) *names = parts;
  std::string path;
  for (const std::string& p : parts) path += SafePathComponent(p) + "/";
  return path;
}

bool SavePipeline::PrepareFolderOutput(const std::string& relPath, const std::string& folderName) {
  const std::string full = destination_ + relPath;
  if (CharacterCount(full) > kMaxOutputPath) {
    failure_ = "The provided path is too long to create\nPlease provide different destination path\n" + destination_;
    return false;
  }
  std::error_code ec;
  fs::create_directories(full, ec);
  if (!fs::is_directory(full, ec)) {
    failure_ = "Unable to create " + full;
    return false;
  }
  currentRelFolder_ = relPath;
  if (options_->kind == kOutputMbox) {
    mbox_.Close();
    // The folder's own name is used as it stands; one a file name cannot
    // hold fails here, as it would anywhere.
    const bool usable = folderName.find('/') == std::string::npos && folderName.find('\0') == std::string::npos;
    if (!usable || !mbox_.Open(full + folderName + ".MBOX")) {
      failure_ = "Unable to create " + full + folderName + ".MBOX";
      return false;
    }
  }
  return true;
}

void SavePipeline::WalkCheckedFolders() {
  // In the order of the folder list, not of the tree.
  for (std::size_t i = 0; i < reader_.folders.size(); ++i) {
    if (Cancelled()) return;
    const FolderRecord& folder = reader_.folders[i];
    if (folder.treeItem == kNoTreeItem || folder.treeItem == storeItem_ || !tree_.IsChecked(folder.treeItem)) continue;
    const std::string label = tree_.Text(folder.treeItem);
    if (!FolderAllowed(&options_->filter, label)) continue;
    const std::string relPath = RelativePath(folder.treeItem);
    reader_.Sink().SetStepLine("Saving Folder : " + relPath);
    if (!PrepareFolderOutput(relPath, label)) {
      walkFailed_ = true;
      return;
    }
    fileIndex_ = 0;
    totalInFolder_ = folder.itemCount;
    WalkFolderItems(i);
  }
}

void SavePipeline::WalkFolderItems(std::size_t folderRow) {
  saveDeletedMode_ = static_cast<std::uint32_t>(profile_.GetInt(kSaveDeletedKey, 1));
  ForEachFolderItem(reader_, reader_.folders[folderRow].nodeId, saveDeletedMode_,
                    [&](const FolderItem& item) { SaveOneItem(item); });
}

void SavePipeline::SaveOneItem(const FolderItem& item) {
  if (Cancelled() || !convert_) return;
  if ((saveDeletedMode_ == 2 && item.isLost) || (saveDeletedMode_ == 3 && !item.isLost)) return;
  const ConvertedItem converted = convert_(item, &options_->filter);
  // Filtered, or nothing to show for it: never counted.
  if (converted.fromText.empty() && converted.subject.empty() && converted.deliveryTime == 0) return;
  if (converted.emlPath.empty()) return;
  ++fileIndex_;
  // The subject goes to the running line with the count; the folder's own
  // line stays.
  char text[64];
  if (totalInFolder_ != 0 && fileIndex_ < totalInFolder_) {
    std::snprintf(text, sizeof text, "Saving %u of %u", fileIndex_, totalInFolder_);
    reader_.Sink().SetProgress(static_cast<int>(std::uint64_t{fileIndex_} * 100 / totalInFolder_));
  } else {
    // Items past the folder's own count: told apart by the text alone.
    std::snprintf(text, sizeof text, "Saving Deleted Item(s) %u ", fileIndex_);
  }
  reader_.Sink().SetStatusLine(std::string(text) + "  " + converted.subject);
  SaveFromEml(converted);
}

void SavePipeline::SaveFromEml(const ConvertedItem& item) {
  if ((item.type == "JOURNAL" || item.type == "TASK" || item.type == "CALENDER" || item.type == "CONTACT") &&
      rebuild_) {
    rebuild_(item);
  }
  std::error_code ec;
  if (!fs::exists(item.emlPath, ec)) return;  // the number stays used: a gap tells which item failed
  if (options_->kind == kOutputMbox) {
    mbox_.AppendToMbox(item.emlPath);
    ++itemsWritten_;
    return;
  }
  const std::string target = destination_ + currentRelFolder_ + std::to_string(fileIndex_) + ".eml";
  if (fs::copy_file(item.emlPath, target, fs::copy_options::overwrite_existing, ec)) ++itemsWritten_;
}

}  // namespace marrow
