// Compressed RTF bodies.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include <gtest/gtest.h>

#include "content/rtf_body.h"
#include "store/store_reader.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;
using Buf = std::vector<std::uint8_t>;

Buf Hex(const char* hex) {
  Buf out;
  for (const char* p = hex; p[0] && p[1]; p += 2) out.push_back(static_cast<std::uint8_t>(std::stoi(std::string(p, 2), nullptr, 16)));
  return out;
}

class RtfFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("marrow-rtf-" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string Path(const char* name) const { return (dir_ / name).string(); }
  static std::string Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  fs::path dir_;
};

TEST_F(RtfFiles, PublishedExamplesWithTheClosingBraces) {
  // The run stops a few bytes before the stream's end marker; "}}" makes up for it.
  const Buf simple = Hex("2d0000002b0000004c5a4675f1c5c7a703000a007263706731323542320af32068656c090020627705b06c647d0a800fa0");
  ASSERT_TRUE(DecompressRtf(simple.data(), simple.size(), Path("a.rtf")));
  EXPECT_EQ(Read(Path("a.rtf")), "{\\rtf1\\ansi\\ansicpg1252\\pard hello world}}");
  const Buf wrapping = Hex("1a0000001c0000004c5a4675e2d44b51410004205758595a0d6e7d010eb0");
  ASSERT_TRUE(DecompressRtf(wrapping.data(), wrapping.size(), Path("b.rtf")));
  EXPECT_EQ(Read(Path("b.rtf")), "{\\rtf1 WXYZWXYZWXYZWXYZWXYZ}}");
}

TEST_F(RtfFiles, ShortOrForeignValuesWriteNothing) {
  const Buf shortValue(15, 0);
  EXPECT_FALSE(DecompressRtf(shortValue.data(), shortValue.size(), Path("s.rtf")));
  EXPECT_FALSE(DecompressRtf(nullptr, 40, Path("s.rtf")));
  Buf foreign = Hex("2d0000002b0000004c5a4676f1c5c7a703000a00");
  EXPECT_FALSE(DecompressRtf(foreign.data(), foreign.size(), Path("s.rtf")));
  EXPECT_FALSE(fs::exists(Path("s.rtf")));
}

TEST_F(RtfFiles, TinyStoredSizeGivesAnEmptyFileThatFailsTheCheck) {
  const Buf tiny = Hex("110000002b0000004c5a4675000000000300");
  ASSERT_TRUE(DecompressRtf(tiny.data(), tiny.size(), Path("t.rtf")));
  EXPECT_EQ(fs::file_size(Path("t.rtf")), 0u);
  PropertyBag bag;
  bag.Append(PropertyValue::InMemory(0x1009, 0x0102, tiny.data(), tiny.size()));
  EXPECT_FALSE(WriteRtfBody(bag, Path("u.rtf")));
  EXPECT_FALSE(fs::exists(Path("u.rtf"))) << "a body that fails the check is deleted";
  PropertyBag wrongType;
  wrongType.Append(PropertyValue::InMemory(0x1009, 0x001F, tiny.data(), tiny.size()));
  EXPECT_FALSE(WriteRtfBody(wrongType, Path("v.rtf")));
}

TEST_F(RtfFiles, ReferencesWrapAtTheDictionaryEnd) {
  // One control byte: a reference to offset 4090, length 10, then seven literals.
  Buf stream = {0x4C, 0x5A, 0x46, 0x75, 0, 0, 0, 0, 0x01, 0xFF, 0xA8, 'a', 'b', 'c', 'd', 'e', 'f', 'g'};
  Buf full = {0, 0, 0, 0, 0, 0, 0, 0};
  full.insert(full.end(), stream.begin(), stream.end());
  full.resize(full.size() + 20, 0);  // room past the size test
  const std::uint32_t stored = static_cast<std::uint32_t>(full.size() - 4);
  for (int i = 0; i < 4; ++i) full[i] = static_cast<std::uint8_t>(stored >> (8 * i));
  ASSERT_TRUE(DecompressRtf(full.data(), full.size(), Path("w.rtf")));
  // 4090..4095 are zero (never written), then the preload's first four bytes.
  const std::string out = Read(Path("w.rtf"));
  ASSERT_GE(out.size(), 10u);
  EXPECT_EQ(out.substr(0, 10), std::string(6, '\0') + "{\\rt");
  EXPECT_EQ(out.substr(10, 7), "abcdefg");
  EXPECT_EQ(out.substr(out.size() - 2), "}}");
}

TEST_F(RtfFiles, CheckWantsRtfAndMoreThanFiveBraces) {
  std::ofstream(Path("few.rtf")) << "{\\rtf1{a}{b}{c}{d}}";
  std::ofstream(Path("many.rtf")) << "{\\rtf1{a}{b}{c}{d}{e}}";
  std::ofstream(Path("plain.txt")) << "{{{{{{{{{{ no marker }}}}}}}}}}";
  EXPECT_FALSE(CheckRtfFile(Path("few.rtf")));
  EXPECT_TRUE(CheckRtfFile(Path("many.rtf")));
  EXPECT_FALSE(CheckRtfFile(Path("plain.txt")));
  EXPECT_FALSE(CheckRtfFile(Path("missing.rtf")));
}

TEST_F(RtfFiles, EveryRtfBodyOfTheSamplesDecompresses) {
  MARROW_REQUIRE_TESTDATA();
  // Bodies the check turns away, by rule: short real RTF with five groups or
  // fewer (go-pst: 4; pst2john's 294 messages share one 15,544-byte body with
  // 3), and bodies stored uncompressed ("MELA"), which are decompressed all
  // the same and come out as noise.
  const std::map<std::string, std::size_t> rejected = {{"pst/ansi/go-pst_32-bit.pst", 1},
                                                       {"pst/ansi/pst2john_97_outlook_pass12345.pst", 294},
                                                       {"pst/unicode/aspose_passwordprotectedPST.pst", 8}};
  std::size_t bodies = 0;
  for (const std::string& store : test::AllStores()) {
    SCOPED_TRACE(store);
    StoreReader reader(dir_.string());
    reader.OpenSource(std::make_unique<MemorySource>(test::ReadFileBytes(test::Sample(store))));
    std::vector<NodeEntry> messages;
    VisitedSet pages;
    reader.ForEachNodeEntry(reader.nodeRootOffset, pages, [&](const NodeEntry& e) {
      if ((e.nodeId & kNodeTypeMask) == kNodeTypeMessage) messages.push_back(e);
    });
    std::size_t refused = 0;
    for (const NodeEntry& m : messages) {
      SubnodeLists subnodes;
      reader.ReadSubnodeList(m.subnodeBlock, subnodes);
      PropertyBag bag;
      reader.ReadBagFromBlock(m.dataBlock, bag, subnodes);
      if (bag.Find(0x1009) == nullptr) continue;
      ++bodies;
      if (!WriteRtfBody(bag, Path("body.rtf"))) ++refused;
    }
    auto want = rejected.find(store);
    EXPECT_EQ(refused, want == rejected.end() ? 0 : want->second);
  }
  EXPECT_GT(bodies, 400u);
}

}  // namespace
}  // namespace marrow
