// Case folding of the ASCII letters, as the class, folder-name and header
// comparisons use it; other bytes (UTF-8 included) pass unchanged.
#pragma once

#include <cctype>
#include <string>

namespace marrow {

inline std::string AsciiUpper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

inline std::string AsciiLower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace marrow
