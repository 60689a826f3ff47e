#include "mail/encoded_words.h"

#include <strings.h>

#include <cstdint>
#include <vector>

namespace marrow {
namespace {

constexpr std::size_t kWordBytes = 45;   // 60 base64 characters: a word of 72
constexpr std::size_t kQWordBytes = 21;  // at most 63 characters once encoded

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct Word {
  std::size_t begin = 0, end = 0;  // the whole "=?...?=" in the value
  std::string_view charset;
  char encoding = 0;  // 'B' or 'Q'
  std::string_view text;
};

// An encoded word starting at `at`; false when there is none.
bool ParseWord(std::string_view s, std::size_t at, Word& w) {
  if (s.compare(at, 2, "=?") != 0) return false;
  const std::size_t q1 = s.find('?', at + 2);
  if (q1 == std::string_view::npos || q1 + 2 >= s.size() || s[q1 + 2] != '?') return false;
  const char enc = static_cast<char>(s[q1 + 1] & ~0x20);
  if (enc != 'B' && enc != 'Q') return false;
  const std::size_t close = s.find("?=", q1 + 3);
  if (close == std::string_view::npos) return false;
  const std::string_view text = s.substr(q1 + 3, close - q1 - 3);
  if (text.find_first_of(" \t\r\n?") != std::string_view::npos) return false;
  w = {at, close + 2, s.substr(at + 2, q1 - at - 2), enc, text};
  return true;
}

bool IsBlank(std::string_view s) {
  return s.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

bool IsUtf8(std::string_view charset) {
  const std::string name(charset);
  return strcasecmp(name.c_str(), "utf-8") == 0 || strcasecmp(name.c_str(), "utf8") == 0;
}

int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  c = static_cast<char>(c & ~0x20);
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

void DecodeWord(const Word& w, std::string& out) {
  if (w.encoding == 'B') {
    std::uint32_t bits = 0;
    int count = 0;
    for (char c : w.text) {
      const int v = Base64Value(c);
      if (v < 0) continue;
      bits = (bits << 6) | static_cast<std::uint32_t>(v);
      if ((count += 6) >= 8) {
        count -= 8;
        out += static_cast<char>((bits >> count) & 0xFF);
      }
    }
    return;
  }
  for (std::size_t i = 0; i < w.text.size(); ++i) {
    const char c = w.text[i];
    if (c == '_') {
      out += ' ';
    } else if (c == '=' && i + 2 < w.text.size() && HexValue(w.text[i + 1]) >= 0 && HexValue(w.text[i + 2]) >= 0) {
      out += static_cast<char>(HexValue(w.text[i + 1]) * 16 + HexValue(w.text[i + 2]));
      i += 2;
    } else {
      out += c;
    }
  }
}

std::string BWord(std::string_view bytes) {
  std::string out = "=?UTF-8?B?";
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t n = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t v = 0;
    for (std::size_t k = 0; k < 3; ++k) v = (v << 8) | (k < n ? static_cast<unsigned char>(bytes[i + k]) : 0);
    for (std::size_t k = 0; k < 4; ++k) out += k <= n ? kBase64[(v >> (18 - 6 * k)) & 0x3F] : '=';
  }
  return out + "?=";
}

std::string QWord(std::string_view bytes) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out = "=?UTF-8?Q?";
  for (unsigned char c : bytes) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
      out += static_cast<char>(c);
    } else if (c == ' ') {
      out += '_';
    } else {
      out += '=';
      out += kHex[c >> 4];
      out += kHex[c & 0xF];
    }
  }
  return out + "?=";
}

// The length of the UTF-8 character that starts with `lead`; 1 for a byte
// that starts none.
std::size_t CharLength(unsigned char lead) {
  if (lead >= 0xF0 && lead < 0xF8) return 4;
  if (lead >= 0xE0) return lead < 0xF0 ? 3 : 1;
  if (lead >= 0xC0) return 2;
  return 1;
}

// The next character boundary after `at`, never past the end.
std::size_t NextBoundary(std::string_view bytes, std::size_t at) {
  return std::min(bytes.size(), at + CharLength(static_cast<unsigned char>(bytes[at])));
}

// Encodes `bytes` as words between characters: base64 words of whole groups
// of three bytes, the last of any length.
std::vector<std::string> EncodeWords(std::string_view bytes) {
  std::vector<std::string> words;
  std::size_t start = 0;
  while (start < bytes.size()) {
    std::size_t pos = start, whole = start;
    while (pos < bytes.size()) {
      const std::size_t next = NextBoundary(bytes, pos);
      if (next - start > kWordBytes) break;
      pos = next;
      if ((pos - start) % 3 == 0) whole = pos;
    }
    if (pos == bytes.size()) {
      words.push_back(BWord(bytes.substr(start)));
      break;
    }
    if (whole > start) {
      words.push_back(BWord(bytes.substr(start, whole - start)));
      start = whole;
      continue;
    }
    // No cut of whole groups between characters: Q words, which pad nothing.
    while (start < pos) {
      std::size_t end = start;
      while (end < pos && NextBoundary(bytes, end) - start <= kQWordBytes) end = NextBoundary(bytes, end);
      if (end == start) end = NextBoundary(bytes, start);
      words.push_back(QWord(bytes.substr(start, end - start)));
      start = end;
    }
  }
  return words;
}

// A run needs mending when a base64 word before its last one ends in padding.
bool NeedsMending(const std::vector<Word>& run) {
  if (run.size() < 2) return false;
  for (const Word& w : run) {
    if (!IsUtf8(w.charset)) return false;
  }
  for (std::size_t i = 0; i + 1 < run.size(); ++i) {
    if (run[i].encoding == 'B' && run[i].text.find('=') != std::string_view::npos) return true;
  }
  return false;
}

}  // namespace

std::string MendEncodedWords(std::string_view raw) {
  if (raw.find("=?") == std::string_view::npos) return std::string(raw);
  // Runs of words with nothing but blanks between them.
  std::vector<std::vector<Word>> runs;
  for (std::size_t at = raw.find("=?"); at != std::string_view::npos; at = raw.find("=?", at)) {
    Word w;
    if (!ParseWord(raw, at, w)) {
      at += 2;
      continue;
    }
    if (runs.empty() || !IsBlank(raw.substr(runs.back().back().end, w.begin - runs.back().back().end))) {
      runs.emplace_back();
    }
    runs.back().push_back(w);
    at = w.end;
  }

  std::string out;
  std::size_t copied = 0;
  for (const std::vector<Word>& run : runs) {
    if (!NeedsMending(run)) continue;
    std::string bytes;
    for (const Word& w : run) DecodeWord(w, bytes);
    const std::string_view gap = raw.substr(run[0].end, run[1].begin - run[0].end);
    out.append(raw, copied, run.front().begin - copied);
    const std::vector<std::string> words = EncodeWords(bytes);
    for (std::size_t i = 0; i < words.size(); ++i) {
      if (i != 0) out.append(gap);
      out += words[i];
    }
    copied = run.back().end;
  }
  out.append(raw.substr(copied));
  return out;
}

}  // namespace marrow
