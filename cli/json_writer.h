// A small streaming JSON writer for the command line's --json output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace marrow::cli {

class JsonWriter {
 public:
  void BeginObject();
  void EndObject();
  void BeginArray();
  void EndArray();
  void Key(const std::string& key);
  void Value(std::int64_t v);
  void Value(std::uint64_t v);
  void Value(int v) { Value(static_cast<std::int64_t>(v)); }
  void Value(unsigned v) { Value(static_cast<std::uint64_t>(v)); }
  void Value(const std::string& v);
  void Value(bool v);
  // Key and value together.
  template <typename T>
  void Member(const std::string& key, const T& value) {
    Key(key);
    Value(value);
  }
  const std::string& Text() const { return out_; }

 private:
  void Separate();
  std::string out_;
  std::vector<bool> first_;  // per open container: nothing written in it yet
  bool afterKey_ = false;
};

// Escapes a UTF-8 string as a JSON string literal (with quotes).
std::string JsonString(const std::string& s);

}  // namespace marrow::cli
