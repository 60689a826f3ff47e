#include "cli/json_writer.h"

#include <cstdio>

namespace marrow::cli {

std::string JsonString(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

void JsonWriter::Separate() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (!first_.empty()) {
    if (!first_.back()) out_ += ",";
    first_.back() = false;
  }
}

void JsonWriter::BeginObject() {
  Separate();
  out_ += "{";
  first_.push_back(true);
}

void JsonWriter::EndObject() {
  out_ += "}";
  first_.pop_back();
}

void JsonWriter::BeginArray() {
  Separate();
  out_ += "[";
  first_.push_back(true);
}

void JsonWriter::EndArray() {
  out_ += "]";
  first_.pop_back();
}

void JsonWriter::Key(const std::string& key) {
  Separate();
  out_ += JsonString(key) + ":";
  afterKey_ = true;
}

void JsonWriter::Value(std::int64_t v) {
  Separate();
  out_ += std::to_string(v);
}

void JsonWriter::Value(std::uint64_t v) {
  Separate();
  out_ += std::to_string(v);
}

void JsonWriter::Value(const std::string& v) {
  Separate();
  out_ += JsonString(v);
}

void JsonWriter::Value(bool v) {
  Separate();
  out_ += v ? "true" : "false";
}

}  // namespace marrow::cli
