// Boundary repair on headers-only MIME files.
#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "mail/ck_mime.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::MailFixture;
using test::ScratchDir;

struct Field {
  std::string name, value;
  bool operator==(const Field&) const = default;
};

std::vector<Field> Fields(const CkEmail& mail) {
  std::vector<Field> fields;
  for (int i = 0; i < mail.NumHeaderFields(); ++i)
    fields.push_back({mail.GetHeaderFieldName(i), mail.GetHeaderFieldValue(i)});
  return fields;
}

class MimeBoundary : public ScratchDir {};

TEST_F(MimeBoundary, ReplacedBoundaryKeepsEveryOtherFieldAndPythonTakesIt) {
  CkMime mime;
  ASSERT_TRUE(mime.LoadMimeFile(MailFixture("headers_only.eml")));
  EXPECT_EQ(mime.GetBoundary(), "----=_NextPart_000_0012_01DA7088.5A2B3C40");
  ASSERT_TRUE(mime.SetBoundary("--VOR"));
  EXPECT_EQ(mime.GetBoundary(), "--VOR");
  ASSERT_TRUE(mime.SaveMime(Path("fixed.eml")));

  CkMime again;
  ASSERT_TRUE(again.LoadMimeFile(Path("fixed.eml")));
  EXPECT_EQ(again.GetBoundary(), "--VOR");

  CkEmail before, after;
  ASSERT_TRUE(before.LoadEml(MailFixture("headers_only.eml")));
  ASSERT_TRUE(after.LoadEml(Path("fixed.eml")));
  std::vector<Field> expected = Fields(before);
  ASSERT_EQ(expected.size(), 8u);
  for (Field& field : expected)
    if (field.name == "Content-Type") field.value = "multipart/mixed; boundary=--VOR";
  EXPECT_EQ(Fields(after), expected);
  // The fields above Content-Type come out exactly as they were stored.
  const std::string original = test::ReadFile(MailFixture("headers_only.eml"));
  const std::string fixed = test::ReadFile(Path("fixed.eml"));
  const std::size_t keep = original.find("Content-Type:");
  EXPECT_EQ(fixed.substr(0, keep), original.substr(0, keep));
  EXPECT_NE(fixed.find("\r\nX-Has-Attach: yes\r\n"), std::string::npos);

  bool available = false;
  const std::vector<std::string> dump = test::PythonDump(Path("fixed.eml"), &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  ASSERT_FALSE(dump.empty());
  EXPECT_EQ(dump[0], "subject\t" + test::Hex("Quarterly figures"));
  // The parts are gone, so Python notes defects; what matters is that it
  // reads the fields and takes the new boundary.
  EXPECT_NE(std::find(dump.begin(), dump.end(), "boundary\t--VOR"), dump.end());
  EXPECT_NE(std::find(dump.begin(), dump.end(), "to\t\tolga@example.net"), dump.end());
}

TEST_F(MimeBoundary, SinglePartsGainTheParameterAndNothingLoadedFails) {
  CkMime mime;
  EXPECT_FALSE(mime.SetBoundary("x"));
  EXPECT_FALSE(mime.SaveMime(Path("none.eml")));
  EXPECT_FALSE(mime.LoadMimeFile(Path("missing.eml")));
  EXPECT_EQ(mime.LastErrorText(), "Failed to read file: " + Path("missing.eml"));
  EXPECT_FALSE(mime.LoadMime(""));

  ASSERT_TRUE(mime.LoadMime("Subject: one part\r\nContent-Type: text/plain\r\n\r\nhello\r\n"));
  EXPECT_EQ(mime.GetBoundary(), "");
  ASSERT_TRUE(mime.SetBoundary("--VOR"));
  EXPECT_EQ(mime.GetBoundary(), "--VOR");
  EXPECT_NE(mime.GetMime().find("\r\n\r\nhello\r\n"), std::string::npos);
}

}  // namespace
}  // namespace marrow
