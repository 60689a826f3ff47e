// Which folders and items a save lets through.
#pragma once

#include <cstdint>
#include <string>

#include "saving/save_options.h"

namespace marrow {

// The label an item type filter compares, from a message class.
std::string ItemTypeLabel(const std::string& messageClass);

// The Folder Name filter on a folder's own label; a refused parent does not
// refuse its children.
bool FolderAllowed(const SaveFilter* filter, const std::string& name);

// From, To, Subject, Item Type and Date Range in this order; the first
// refusal decides. No filter (a run over chosen items) passes everything.
bool ItemAllowed(const SaveFilter* filter, const std::string& from, const std::string& to, const std::string& subject,
                 std::int64_t date, const std::string& messageClass);

}  // namespace marrow
