// MBOX files: the fixed separator, each message byte for byte, CR LF after
// it, and what a standard reader then makes of a body line "From ...".
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "saving/mbox_writer.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class Mbox : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("mbox-" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  fs::path Write(const std::string& name, const std::string& text) {
    std::ofstream(dir_ / name, std::ios::binary) << text;
    return dir_ / name;
  }
  fs::path dir_;
};

TEST_F(Mbox, MessagesStandBehindTheFixedSeparator) {
  const std::string one = "From: a@x.org\r\nSubject: one\r\n\r\nHello\r\n";
  std::string big = "Subject: big\r\n\r\n";
  big.resize(0x10000, 'x');  // exactly one chunk
  const fs::path mbox = dir_ / "Inbox.MBOX";
  MboxWriter w;
  ASSERT_TRUE(w.Open(mbox.string()));
  w.AppendToMbox(Write("1.eml", one).string());
  w.AppendToMbox((dir_ / "missing.eml").string());  // dropped silently
  w.AppendToMbox(Write("2.eml", big).string());
  w.Close();
  const std::string sep = MboxWriter::kSeparator;
  EXPECT_EQ(sep.size(), 44u);
  EXPECT_EQ(Slurp(mbox), sep + one + "\r\n" + sep + big + "\r\n");

  // An empty folder leaves a file of 0 bytes; a folder name a file cannot
  // take fails at the opening.
  MboxWriter empty;
  ASSERT_TRUE(empty.Open((dir_ / "Empty.MBOX").string()));
  empty.Close();
  EXPECT_EQ(fs::file_size(dir_ / "Empty.MBOX"), 0u);
  EXPECT_FALSE(empty.Open((dir_ / "no/such/dir.MBOX").string()));
}

TEST_F(Mbox, PythonReadsTheMessagesAndSplitsAtAnUnquotedFromLine) {
  const fs::path mbox = dir_ / "Sent.MBOX";
  MboxWriter w;
  ASSERT_TRUE(w.Open(mbox.string()));
  w.AppendToMbox(Write("1.eml", "From: a@x.org\r\nSubject: first\r\n\r\nplain body\r\n").string());
  w.AppendToMbox(
      Write("2.eml", "From: b@x.org\r\nSubject: second\r\n\r\nline one\r\nFrom here on it is quoted\r\n").string());
  w.Close();
  // Body lines are not quoted, by design: a reader then starts a message
  // at "From here on", so it sees three messages where two were written.
  const std::string script =
      "import mailbox,sys\n"
      "m=mailbox.mbox(sys.argv[1])\n"
      "print(len(m), '|'.join(str(x['subject']) for x in m))\n";
  FILE* pipe = ::popen(("python3 - " + mbox.string() + " <<'EOF'\n" + script + "EOF\n").c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char buf[512] = {};
  const std::size_t n = std::fread(buf, 1, sizeof buf - 1, pipe);
  ASSERT_EQ(::pclose(pipe), 0);
  EXPECT_EQ(std::string(buf, n), "3 first|second|None\n");
}

}  // namespace
}  // namespace marrow
