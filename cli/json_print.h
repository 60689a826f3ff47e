// --json output: a document built with nlohmann::ordered_json (keys in the
// order set), printed compactly on one line.
#pragma once

#include <nlohmann/json.hpp>

namespace marrow::cli {

using Json = nlohmann::ordered_json;

// Prints `value` and a newline to stdout. Strings go out as they are held:
// '"', '\\', '\n', '\r' and '\t' escaped, other control bytes as \u00XX, every
// other byte unchanged, so text that is not valid UTF-8 is printed rather than
// refused.
void PrintJson(const Json& value);

}  // namespace marrow::cli
