// The names a save gives its folders on disk.
#pragma once

#include <string>
#include <vector>

#include "store/folder_tree.h"

namespace marrow {

// A folder or file name made safe for one path component: the characters a
// file name cannot hold become "_", and "." or ".." become "_".
std::string SafePathComponent(const std::string& name);

// The folder a store's output goes to inside `destination` (which ends in
// "/"): named after the source file, numbered "(1)", "(2)"... when taken,
// so a rerun never meets old output. Ends in "/".
std::string StoreOutputFolder(const std::string& destination, const std::string& sourcePath);

// The path of `folder` below `storeItem`, "/" after each safe name. Top
// folders ("IPM_SUBTREE", "Top of Personal Folders"...) and the folder named
// `rootName` (any case; "" for none) end the path upwards, nameless folders
// are passed over. `names` receives the names as they stand.
std::string RelativeFolderPath(const TreeSink& tree, TreeItem storeItem, TreeItem folder, const std::string& rootName,
                               std::vector<std::string>* names = nullptr);

// Whether a folder path is longer than a save makes, counted in characters.
bool OutputPathTooLong(const std::string& path);

}  // namespace marrow
