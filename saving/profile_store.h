// The few answers that travel through the user's profile rather than the
// save options. The GUI keeps them in its settings; tests and the command
// line use MemoryProfile.
#pragma once

#include <map>
#include <string>

namespace marrow {

class ProfileStore {
 public:
  virtual ~ProfileStore() = default;
  // Section and key are the same text for every value read here.
  virtual int GetInt(const std::string& key, int fallback) const = 0;
  virtual std::string GetText(const std::string& key, const std::string& fallback) const = 0;
};

class MemoryProfile final : public ProfileStore {
 public:
  int GetInt(const std::string& key, int fallback) const override {
    auto at = ints.find(key);
    return at == ints.end() ? fallback : at->second;
  }
  std::string GetText(const std::string& key, const std::string& fallback) const override {
    auto at = texts.find(key);
    return at == texts.end() ? fallback : at->second;
  }
  std::map<std::string, int> ints;
  std::map<std::string, std::string> texts;
};

// Keys of the profile values a save reads.
constexpr const char* kSaveDeletedKey = "saveDeleteditems";  // 1 all, 2 without lost, 3 lost only
constexpr const char* kFolderRootKey = "strFolderRoot";

}  // namespace marrow
