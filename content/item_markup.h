// The <ITEM> mark-up of a save-form item text, read back.
#pragma once

#include <string>

namespace marrow {

// A save-form text with every time row (start, end, due, birthday...) turned
// from its decimal FILETIME into local time; anything outside the rows is dropped.
std::string ReadMarkup(const std::string& text);

}  // namespace marrow
