// MBOX files: the fixed separator, each message byte for byte, CR LF after
// it, and what a standard reader then makes of a body line "From ...".
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "saving/mbox_writer.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

class Mbox : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("mbox-" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  // An MBOX file of the given messages, each first written to a file of its own.
  std::string WriteMbox(const std::vector<std::string>& messages) {
    MboxWriter w;
    EXPECT_TRUE(w.Open((dir_ / "Inbox.MBOX").string()));
    for (std::size_t i = 0; i < messages.size(); ++i) {
      const fs::path eml = dir_ / (std::to_string(i) + ".eml");
      std::ofstream(eml, std::ios::binary) << messages[i];
      w.AppendToMbox(eml.string());
      if (i == 0) w.AppendToMbox((dir_ / "missing.eml").string());  // dropped silently
    }
    w.Close();
    return (dir_ / "Inbox.MBOX").string();
  }
  fs::path dir_;
};

TEST_F(Mbox, MessagesStandBehindTheFixedSeparator) {
  const std::string one = "From: a@x.org\r\nSubject: one\r\n\r\nHello\r\n";
  std::string big = "Subject: big\r\n\r\n";
  big.resize(0x10000, 'x');  // exactly one chunk
  std::ifstream in(WriteMbox({one, big}), std::ios::binary);
  const std::string sep = MboxWriter::kSeparator;
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()),
            sep + one + "\r\n" + sep + big + "\r\n");

  // An empty folder leaves a file of 0 bytes; a name a file cannot take fails at the opening.
  EXPECT_EQ(fs::file_size(WriteMbox({})), 0u);
  MboxWriter w;
  EXPECT_FALSE(w.Open((dir_ / "no/such/dir.MBOX").string()));
}

TEST_F(Mbox, PythonReadsTheMessagesAndSplitsAtAnUnquotedFromLine) {
  // Body lines are not quoted, by design: a reader then starts a message
  // at "From here on", so it sees three messages where two were written.
  const std::string mbox =
      WriteMbox({"From: a@x.org\r\nSubject: first\r\n\r\nplain body\r\n",
                 "From: b@x.org\r\nSubject: second\r\n\r\nline one\r\nFrom here on it is quoted\r\n"});
  const std::string script =
      "import mailbox,sys\n"
      "m=mailbox.mbox(sys.argv[1])\n"
      "print(len(m), '|'.join(str(x['subject']) for x in m))\n";
  FILE* pipe = ::popen(("python3 - " + mbox + " <<'EOF'\n" + script + "EOF\n").c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char buf[512] = {};
  const std::size_t n = std::fread(buf, 1, sizeof buf - 1, pipe);
  ASSERT_EQ(::pclose(pipe), 0);
  EXPECT_EQ(std::string(buf, n), "3 first|second|None\n");
}

}  // namespace
}  // namespace marrow
