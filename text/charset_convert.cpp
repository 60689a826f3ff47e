#include "text/charset_convert.h"

#include <iconv.h>
#include <strings.h>

#include <cerrno>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace marrow {
namespace {

// Code points travel between the two halves of a conversion as UTF-32LE.
constexpr const char* kPivot = "UTF-32LE";
constexpr char32_t kReplacement = 0xFFFD;

// How many bytes to step over after an undecodable sequence: a whole code
// unit for the wide encodings, so the rest of the text stays aligned.
std::size_t UnitSize(const std::string& iconvName) {
  if (strncasecmp(iconvName.c_str(), "UTF-16", 6) == 0 || strncasecmp(iconvName.c_str(), "UCS-2", 5) == 0) return 2;
  if (strncasecmp(iconvName.c_str(), "UTF-32", 6) == 0 || strncasecmp(iconvName.c_str(), "UCS-4", 5) == 0) return 4;
  return 1;
}

void AppendCodePoint(std::string* pivot, char32_t c) {
  for (int i = 0; i < 4; ++i) pivot->push_back(static_cast<char>((c >> (8 * i)) & 0xFF));
}

// Decodes `in` into UTF-32LE code points; counts the replacements made.
bool Decode(std::string_view in, const std::string& from, std::string* pivot, std::size_t* replaced) {
  iconv_t raw = CachedConverter(kPivot, from);
  if (raw == nullptr) return false;
  const std::size_t unit = UnitSize(from);
  char* inp = const_cast<char*>(in.data());
  std::size_t inLeft = in.size();
  char buffer[16384];
  while (inLeft > 0) {
    char* outp = buffer;
    std::size_t outLeft = sizeof buffer;
    const std::size_t r = iconv(raw, &inp, &inLeft, &outp, &outLeft);
    pivot->append(buffer, static_cast<std::size_t>(outp - buffer));
    if (r != static_cast<std::size_t>(-1)) continue;
    if (errno == E2BIG) continue;
    AppendCodePoint(pivot, kReplacement);
    ++*replaced;
    if (errno != EILSEQ) break;  // EINVAL: the text ends inside a sequence
    const std::size_t skip = unit < inLeft ? unit : inLeft;
    inp += skip;
    inLeft -= skip;
    iconv(raw, nullptr, nullptr, nullptr, nullptr);
  }
  return true;
}

// Converts one code point on its own; empty when the target cannot hold it.
std::string EncodeOne(iconv_t cd, char32_t c) {
  std::string one;
  AppendCodePoint(&one, c);
  char* inp = one.data();
  std::size_t inLeft = one.size();
  char buffer[32];
  char* outp = buffer;
  std::size_t outLeft = sizeof buffer;
  if (iconv(cd, &inp, &inLeft, &outp, &outLeft) == static_cast<std::size_t>(-1)) return {};
  return std::string(buffer, static_cast<std::size_t>(outp - buffer));
}

bool Encode(const std::string& pivot, const std::string& to, std::string* out, std::size_t* replaced) {
  iconv_t raw = CachedConverter(to, kPivot);
  if (raw == nullptr) return false;
  std::string substitute;
  bool substituteKnown = false;
  char* inp = const_cast<char*>(pivot.data());
  std::size_t inLeft = pivot.size();
  char buffer[16384];
  while (inLeft > 0) {
    char* outp = buffer;
    std::size_t outLeft = sizeof buffer;
    const std::size_t r = iconv(raw, &inp, &inLeft, &outp, &outLeft);
    out->append(buffer, static_cast<std::size_t>(outp - buffer));
    if (r != static_cast<std::size_t>(-1) || errno == E2BIG) continue;
    if (errno != EILSEQ || inLeft < 4) break;
    if (!substituteKnown) {
      substitute = EncodeOne(raw, kReplacement);
      if (substitute.empty()) substitute = EncodeOne(raw, U'?');
      substituteKnown = true;
    }
    out->append(substitute);
    ++*replaced;
    inp += 4;
    inLeft -= 4;
  }
  // Stateful targets (the ISO-2022 family) return to their initial state.
  char* outp = buffer;
  std::size_t outLeft = sizeof buffer;
  iconv(raw, nullptr, nullptr, &outp, &outLeft);
  out->append(buffer, static_cast<std::size_t>(outp - buffer));
  return true;
}

bool Convert(std::string_view in, std::string_view from, std::string_view to, std::string* out, std::size_t* replaced) {
  out->clear();
  std::string pivot;
  pivot.reserve(in.size() * 4);
  if (!Decode(in, IconvName(from), &pivot, replaced) || !Encode(pivot, IconvName(to), out, replaced)) {
    out->clear();
    return false;
  }
  return true;
}

}  // namespace

iconv_t CachedConverter(const std::string& to, const std::string& from) {
  struct Converters {
    std::map<std::pair<std::string, std::string>, iconv_t> open;
    ~Converters() { Clear(); }
    void Clear() {
      for (const auto& [names, cd] : open) iconv_close(cd);
      open.clear();
    }
  };
  thread_local Converters converters;
  auto found = converters.open.find({to, from});
  if (found == converters.open.end()) {
    const iconv_t cd = iconv_open(to.c_str(), from.c_str());
    if (cd == reinterpret_cast<iconv_t>(-1)) return nullptr;
    // Messages name few charsets; hostile ones may name many.
    if (converters.open.size() >= 32) converters.Clear();
    found = converters.open.emplace(std::make_pair(to, from), cd).first;
  }
  iconv(found->second, nullptr, nullptr, nullptr, nullptr);
  return found->second;
}

std::string IconvName(std::string_view charset) {
  struct Alias {
    const char* ours;
    const char* iconv;
  };
  static constexpr Alias kAliases[] = {
      {"ansi", "WINDOWS-1252"},    {"utf-16", "UTF-16LE"},      {"unicode", "UTF-16LE"},
      {"unicodefffe", "UTF-16BE"}, {"ks_c_5601-1987", "CP949"}, {"utf8", "UTF-8"},
  };
  const std::string name(charset);
  for (const Alias& alias : kAliases)
    if (strcasecmp(name.c_str(), alias.ours) == 0) return alias.iconv;
  return name;
}

bool CharsetKnown(std::string_view charset) {
  if (charset.empty()) return false;
  const std::string name = IconvName(charset);
  return CachedConverter(kPivot, name) && CachedConverter(name, kPivot);
}

bool ConvertCharsetLossy(std::string_view in, std::string_view from, std::string_view to, std::string* out) {
  std::size_t replaced = 0;
  return Convert(in, from, to, out, &replaced);
}

bool ConvertCharsetExact(std::string_view in, std::string_view from, std::string_view to, std::string* out) {
  std::size_t replaced = 0;
  if (!Convert(in, from, to, out, &replaced)) return false;
  if (replaced == 0) return true;
  out->clear();
  return false;
}

std::string LineEndsToCrlf(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 32);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) out.push_back('\r');
    out.push_back(text[i]);
  }
  return out;
}

std::string LineEndsToLf(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    out.push_back(text[i]);
  }
  return out;
}

}  // namespace marrow
