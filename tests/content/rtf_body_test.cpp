// Compressed RTF bodies.
#include <gtest/gtest.h>

#include "content/rtf_body.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using test::Buf;

Buf Hex(const char* hex) {
  Buf out;
  for (const char* p = hex; p[0] && p[1]; p += 2)
    out.push_back(static_cast<std::uint8_t>(std::stoi(std::string(p, 2), nullptr, 16)));
  return out;
}

class RtfFiles : public test::ScratchDir {
 protected:
  // The decompressed text of `value`, or "refused" when nothing is written.
  std::string Decompress(const Buf& value) {
    const std::string path = Path("out.rtf");
    fs::remove(path);
    const bool written = DecompressRtf(value.data(), value.size(), path);
    EXPECT_EQ(written, fs::exists(path));
    return written ? test::ReadFile(path) : "refused";
  }
};

TEST_F(RtfFiles, DecompressesWithTheClosingBracesOrRefuses) {
  // The run stops a few bytes before the stream's end marker; "}}" makes up for it.
  EXPECT_EQ(Decompress(Hex("2d0000002b0000004c5a4675f1c5c7a703000a007263706731323542320af32068656c"
                           "090020627705b06c647d0a800fa0")),
            "{\\rtf1\\ansi\\ansicpg1252\\pard hello world}}");
  EXPECT_EQ(Decompress(Hex("1a0000001c0000004c5a4675e2d44b51410004205758595a0d6e7d010eb0")),
            "{\\rtf1 WXYZWXYZWXYZWXYZWXYZ}}");
  EXPECT_EQ(Decompress(Buf(15, 0)), "refused") << "shorter than a header";
  EXPECT_EQ(Decompress(Hex("2d0000002b0000004c5a4676f1c5c7a703000a00")), "refused") << "an unknown signature";
  EXPECT_FALSE(DecompressRtf(nullptr, 40, Path("null.rtf")));
  EXPECT_EQ(Decompress(Hex("110000002b0000004c5a4675000000000300")), "") << "a stored size too small for the stream";

  // One control byte: a reference to offset 4090, length 10, then seven
  // literals. 4090..4095 were never written (zero), then the preload's start.
  Buf wrapping = {0, 0, 0, 0, 0, 0, 0, 0, 0x4C, 0x5A, 0x46, 0x75, 0, 0, 0, 0, 0x01, 0xFF, 0xA8};
  wrapping.insert(wrapping.end(), {'a', 'b', 'c', 'd', 'e', 'f', 'g'});
  wrapping.resize(wrapping.size() + 20, 0);  // room past the size test
  wrapping[0] = static_cast<std::uint8_t>(wrapping.size() - 4);
  const std::string out = Decompress(wrapping);
  EXPECT_EQ(out.substr(0, 17), std::string(6, '\0') + "{\\rtabcdefg");
  EXPECT_TRUE(out.ends_with("}}"));
}

TEST_F(RtfFiles, BodiesThatFailTheCheckAreNotKept) {
  const std::pair<const char*, bool> files[] = {
      {"{\\rtf1{a}{b}{c}{d}}", false},  // five braces: too few
      {"{\\rtf1{a}{b}{c}{d}{e}}", true},
      {"{{{{{{{{{{ no marker }}}}}}}}}}", false},
  };
  for (const auto& [text, good] : files) EXPECT_EQ(CheckRtfFile(Write("x.rtf", text)), good) << text;
  EXPECT_FALSE(CheckRtfFile(Path("missing.rtf")));

  const Buf tiny = Hex("110000002b0000004c5a4675000000000300");
  for (std::uint16_t type : {0x0102, 0x001F}) {
    PropertyBag bag;
    bag.Append(PropertyValue::InMemory(0x1009, type, tiny.data(), tiny.size()));
    EXPECT_FALSE(WriteRtfBody(bag, Path("u.rtf")));
    EXPECT_FALSE(fs::exists(Path("u.rtf"))) << "a body that fails the check is deleted";
  }
}

TEST_F(RtfFiles, EveryRtfBodyOfTheSamplesDecompresses) {
  MARROW_REQUIRE_TESTDATA();
  // Turned away by the check: short real RTF of five groups or fewer (go-pst:
  // 4; pst2john's 294 messages share one 15,544-byte body with 3), and
  // bodies stored uncompressed ("MELA"), which come out as noise.
  const std::map<std::string, std::size_t> rejected = {{"pst/ansi/go-pst_32-bit.pst", 1},
                                                       {"pst/ansi/pst2john_97_outlook_pass12345.pst", 294},
                                                       {"pst/unicode/aspose_passwordprotectedPST.pst", 8}};
  std::size_t bodies = 0;
  for (const std::string& store : test::AllStores()) {
    SCOPED_TRACE(store);
    auto owned = test::SampleReader(store, Dir().string());
    StoreReader& reader = *owned;
    std::size_t refused = 0;
    for (const auto& [id, node] : test::MessageNodes(reader)) {
      SubnodeLists subnodes;
      PropertyBag bag;
      test::ReadMessage(reader, node, subnodes, bag);
      if (bag.Find(0x1009) == nullptr) continue;
      ++bodies;
      if (!WriteRtfBody(bag, Path("body.rtf"))) ++refused;
    }
    const auto want = rejected.find(store);
    EXPECT_EQ(refused, want == rejected.end() ? 0 : want->second);
  }
  EXPECT_GT(bodies, 400u);
}

}  // namespace
}  // namespace marrow
