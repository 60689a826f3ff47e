#include "cli/json_print.h"

#include <cstdio>
#include <string>

namespace marrow::cli {
namespace {

void AppendString(std::string& out, const std::string& s) {
  out += '"';
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
  out += '"';
}

// nlohmann's own dump would refuse (or rewrite) bytes that are not UTF-8.
void Append(std::string& out, const Json& value) {
  switch (value.type()) {
    case Json::value_t::object: {
      out += '{';
      bool first = true;
      for (const auto& [key, member] : value.items()) {
        if (!first) out += ',';
        first = false;
        AppendString(out, key);
        out += ':';
        Append(out, member);
      }
      out += '}';
      break;
    }
    case Json::value_t::array: {
      out += '[';
      for (std::size_t i = 0; i < value.size(); ++i) {
        if (i > 0) out += ',';
        Append(out, value[i]);
      }
      out += ']';
      break;
    }
    case Json::value_t::string: AppendString(out, value.get_ref<const std::string&>()); break;
    default: out += value.dump(); break;  // numbers, booleans, null
  }
}

}  // namespace

void PrintJson(const Json& value) {
  std::string out;
  Append(out, value);
  std::printf("%s\n", out.c_str());
}

}  // namespace marrow::cli
