#include "content/rtf_body.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "content/property_values.h"
#include "store/byte_order.h"

namespace marrow {
namespace {

constexpr std::uint32_t kMagicCompressed = 0x75465A4C;    // "LZFu"
constexpr std::uint32_t kMagicUncompressed = 0x414C454D;  // "MELA"
constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kDictionarySize = 4096;
constexpr std::uint16_t kRtfCompressed = 0x1009;
constexpr std::uint16_t kTypeBinary = 0x0102;

// The published text the dictionary starts with; writing begins after it.
constexpr char kPreload[] =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript "
    "\\fdecor MS Sans SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0\\blue0\r\n\\par "
    "\\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";
static_assert(sizeof kPreload - 1 == 207);

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

bool DecompressRtf(const std::uint8_t* bytes, std::size_t size, const std::string& outPath) {
  if (bytes == nullptr || size < kHeaderSize) return false;
  const Bytes value(bytes, size);
  const std::uint32_t magic = ReadU32(value, 8);
  if (magic != kMagicCompressed && magic != kMagicUncompressed) return false;
  std::unique_ptr<std::FILE, FileCloser> out(std::fopen(outPath.c_str(), "wb"));
  if (!out) return false;

  const std::uint64_t stored = ReadU32(value, 0);
  std::uint8_t dictionary[kDictionarySize] = {};
  std::memcpy(dictionary, kPreload, sizeof kPreload - 1);
  std::size_t write = sizeof kPreload - 1;
  std::uint64_t written = 0;
  auto emit = [&](std::uint8_t c) {
    dictionary[write] = c;
    write = (write + 1) % kDictionarySize;
    std::fputc(c, out.get());
    ++written;
  };
  // `pos` counts from the first byte after the header.
  std::uint64_t pos = 0;
  while (pos + 0x11 < stored && pos + 0x10 < size) {
    const std::uint8_t control = value[kHeaderSize + pos++];
    for (int bit = 0; bit < 8 && pos + 0x11 < stored; ++bit) {
      if (pos + 0x10 >= size) continue;
      if ((control >> bit & 1) == 0) {
        emit(value[kHeaderSize + pos++]);
        continue;
      }
      const std::uint16_t reference =
          static_cast<std::uint16_t>(ReadU8(value, kHeaderSize + pos) << 8 | ReadU8(value, kHeaderSize + pos + 1));
      pos += 2;
      const std::size_t offset = reference >> 4;
      const std::size_t length = (reference & 0xF) + 2;
      for (std::size_t i = 0; i < length; ++i) emit(dictionary[(offset + i) % kDictionarySize]);
    }
  }
  if (written > 0) std::fputs("}}", out.get());
  return true;
}

bool CheckRtfFile(const std::string& path) {
  std::unique_ptr<std::FILE, FileCloser> in(std::fopen(path.c_str(), "rb"));
  if (!in) return false;
  std::vector<char> head(65536);
  const std::size_t n = std::fread(head.data(), 1, head.size(), in.get());
  std::size_t open = 0, close = 0;
  bool rtf = false;
  for (std::size_t i = 0; i < n && i < 65533; ++i) {
    open += head[i] == '{';
    close += head[i] == '}';
    rtf = rtf || (i + 2 < n && head[i] == 'r' && head[i + 1] == 't' && head[i + 2] == 'f');
  }
  return rtf && (open > 5 || close > 5);
}

bool WriteRtfBody(const PropertyBag& bag, const std::string& outPath) {
  const PropertyValue* v = bag.Find(kRtfCompressed);
  if (v == nullptr || v->propType != kTypeBinary) return false;
  const std::vector<std::uint8_t> bytes = ValueBytes(*v);
  if (!DecompressRtf(bytes.data(), bytes.size(), outPath)) return false;
  if (CheckRtfFile(outPath)) return true;
  std::remove(outPath.c_str());
  return false;
}

}  // namespace marrow
