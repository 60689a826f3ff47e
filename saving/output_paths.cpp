#include "saving/output_paths.h"

#include <filesystem>

#include "store/ascii_case.h"

namespace marrow {
namespace {

// The longest output folder path, in characters, a save makes.
constexpr std::size_t kMaxOutputPath = 245;

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
  if (out.empty() || out == "." || out == "..") out.assign(1, '_');
  return out;
}

std::string StoreOutputFolder(const std::string& destination, const std::string& sourcePath) {
  namespace fs = std::filesystem;
  const std::string base = fs::path(sourcePath).filename().string();
  std::string name = base;
  std::error_code ec;
  for (int n = 1; fs::exists(destination + name, ec); ++n) name = base + "(" + std::to_string(n) + ")";
  return destination + SafePathComponent(name) + "/";
}

std::string RelativeFolderPath(const TreeSink& tree, TreeItem storeItem, TreeItem folder, const std::string& rootName,
                               std::vector<std::string>* names) {
  const std::string root = AsciiUpper(rootName);
  std::vector<std::string> parts{tree.Text(folder)};
  for (TreeItem at = tree.Parent(folder); at != 0 && at != storeItem; at = tree.Parent(at)) {
    const std::string name = tree.Text(at);
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

bool OutputPathTooLong(const std::string& path) {
  // Characters, not bytes: UTF-8 continuation bytes are not counted.
  std::size_t n = 0;
  for (unsigned char c : path) n += (c & 0xC0) != 0x80;
  return n > kMaxOutputPath;
}

}  // namespace marrow
