// Attachments and attached messages: names, bytes, fields and removal.
#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "tests/mail/mail_test_files.h"

namespace marrow {
namespace {

using test::Hex;
using test::MailFiles;
using test::MailFixture;

std::string AllByteValues() {
  std::string bytes;
  for (int round = 0; round < 3; ++round)
    for (int b = 0; b < 256; ++b) bytes.push_back(static_cast<char>(b));
  return bytes;
}

// The "file" lines of Python's reading, without their field-name lists.
std::vector<std::string> PythonFiles(const std::string& path, bool* available) {
  std::vector<std::string> files;
  for (const std::string& line : test::PythonDump(path, available)) {
    if (line.rfind("file\t", 0) == 0) files.push_back(line.substr(0, line.rfind('\t')));
    if (line.rfind("defects\t", 0) == 0) files.push_back(line);
  }
  return files;
}

class Attachments : public MailFiles {};

TEST_F(Attachments, NamesWithBlanksAndNonAsciiKeepNameAndBytes) {
  const std::string names[] = {"Quarterly report – März 2024.pdf", "отчёт за март.xlsx",
                               "報告 書.txt", "plain name.bin"};
  const std::string bytes = AllByteValues();
  CkEmail mail;
  // Names go out as RFC 2231 UTF-8, never in a charset picked per name.
  ASSERT_TRUE(mail.SetTextBody("see attached", "text/plain"));
  for (const std::string& name : names) {
    test::WriteText(Path(name), bytes + name);
    ASSERT_TRUE(mail.AddFileAttachment(Path(name), "application/octet-stream"))
        << mail.LastErrorText();
  }
  ASSERT_TRUE(mail.SaveEml(Path("files.eml")));
  const std::string mime = test::ReadText(Path("files.eml"));
  EXPECT_NE(mime.find("filename*0*=UTF-8''"), std::string::npos);
  EXPECT_EQ(mime.find("iso-8859"), std::string::npos);

  CkEmail back;
  ASSERT_TRUE(back.LoadEml(Path("files.eml")));
  ASSERT_EQ(back.NumAttachments(), 4);
  EXPECT_EQ(back.GetPlainTextBody(), "see attached");
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(back.GetAttachmentFilename(i), names[i]);
    std::string data;
    ASSERT_TRUE(back.GetAttachmentData(i, &data));
    EXPECT_TRUE(data == bytes + names[i]) << "bytes of " << names[i];
  }

  bool available = false;
  const std::vector<std::string> files = PythonFiles(Path("files.eml"), &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  std::vector<std::string> expected;
  for (const std::string& name : names)
    expected.push_back("file\tapplication/octet-stream\t" + Hex(name) + "\t" + Hex(bytes + name));
  expected.push_back("defects\t0");
  EXPECT_EQ(files, expected);
}

TEST_F(Attachments, ContentTypeDefaultsAndTextFilesStayAttachments) {
  test::WriteText(Path("notes.txt"), "line one\nline two\n");
  test::WriteText(Path("blob"), std::string("\0\1\2", 3));
  CkEmail mail;
  ASSERT_TRUE(mail.AddFileAttachment(Path("notes.txt"), "text/plain"));
  ASSERT_TRUE(mail.AddFileAttachment(Path("blob"), ""));
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  ASSERT_EQ(back.NumAttachments(), 2);
  EXPECT_FALSE(back.HasPlainTextBody()) << "a named text file is not the body";
  EXPECT_EQ(back.GetAttachmentContentType(0), "text/plain");
  EXPECT_EQ(back.GetAttachmentContentType(1), "application/octet-stream");
  std::string data;
  ASSERT_TRUE(back.GetAttachmentData(0, &data));
  EXPECT_EQ(data, "line one\nline two\n") << "base64 keeps the file's own line ends";
}

TEST_F(Attachments, UnreadableFileIsRefused) {
  CkEmail mail;
  EXPECT_FALSE(mail.AddFileAttachment(Path("no-such-file.pdf"), "application/pdf"));
  EXPECT_EQ(mail.LastErrorText(), "Failed to add file attachment");
  EXPECT_FALSE(mail.AddFileAttachment(dir_.string(), "application/pdf"))
      << "a folder is not a file";
  EXPECT_EQ(mail.NumAttachments(), 0);
}

TEST_F(Attachments, AttachmentHeaderNameIsWrittenAsGiven) {
  test::WriteText(Path("logo.png"), "\x89PNG\r\n\x1a\n");
  CkEmail mail;
  ASSERT_TRUE(mail.SetHtmlBody("<img src=\"cid:logo@x\">"));
  ASSERT_TRUE(mail.AddFileAttachment(Path("logo.png"), "image/png"));
  ASSERT_TRUE(mail.AddAttachmentHeader(0, "Content-Id", "<old@x>"));
  ASSERT_TRUE(mail.AddAttachmentHeader(0, "content-iD", "<logo@x>"));  // replaces
  ASSERT_TRUE(mail.AddAttachmentHeader(0, "X-Note", "заметка"));
  ASSERT_TRUE(mail.SaveEml(Path("cid.eml")));

  const std::string mime = test::ReadText(Path("cid.eml"));
  EXPECT_NE(mime.find("\r\ncontent-iD: <logo@x>\r\n"), std::string::npos);
  EXPECT_EQ(mime.find("<old@x>"), std::string::npos);
  EXPECT_EQ(mime.find("Content-Id"), std::string::npos);

  bool available = false;
  const std::vector<std::string> dump = test::PythonDump(Path("cid.eml"), &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  bool seen = false;
  for (const std::string& line : dump) {
    if (line.rfind("file\timage/png", 0) != 0) continue;
    seen = true;
    EXPECT_NE(line.find("content-iD"), std::string::npos) << line;
  }
  EXPECT_TRUE(seen);
  EXPECT_EQ(dump.back(), "defects\t0");
}

TEST_F(Attachments, OutOfRangeIndexGivesTheExactText) {
  CkEmail mail;
  ASSERT_TRUE(mail.LoadEml(MailFixture("relayed.eml")));
  EXPECT_EQ(mail.GetAttachmentFilename(1), "");
  EXPECT_EQ(mail.LastErrorText(), "Index out of range: no attachment at index = 1.");
  EXPECT_FALSE(mail.AddAttachmentHeader(7, "X-A", "b"));
  EXPECT_EQ(mail.LastErrorText(), "Index out of range: no attachment at index = 7.");
  std::string data = "stale";
  EXPECT_FALSE(mail.GetAttachmentData(-1, &data));
  EXPECT_EQ(mail.LastErrorText(), "Index out of range: no attachment at index = -1.");
  EXPECT_EQ(data, "");
  EXPECT_EQ(mail.GetAttachmentFilename(0), "march.pdf");
}

TEST_F(Attachments, DropAttachmentsLeavesTheBodies) {
  test::WriteText(Path("a.bin"), "aaa");
  test::WriteText(Path("b.bin"), "bbb");
  CkEmail mail;
  ASSERT_TRUE(mail.SetTextBody("plain body", "text/plain"));
  ASSERT_TRUE(mail.AddFileAttachment(Path("a.bin"), ""));
  ASSERT_TRUE(mail.SetHtmlBody("<p>html body</p>"));
  ASSERT_TRUE(mail.AddFileAttachment(Path("b.bin"), ""));
  ASSERT_EQ(mail.NumAttachments(), 2);
  mail.DropAttachments();
  EXPECT_EQ(mail.NumAttachments(), 0);
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  EXPECT_EQ(back.GetPlainTextBody(), "plain body");
  EXPECT_EQ(back.GetHtmlBody(), "<p>html body</p>");
  // No mixed wrapper is left around the lone alternative.
  EXPECT_EQ(back.GetHeaderField("Content-Type").rfind("multipart/alternative", 0), 0u);

  CkEmail loaded;
  ASSERT_TRUE(loaded.LoadEml(MailFixture("relayed.eml")));
  loaded.DropAttachments();
  EXPECT_EQ(loaded.NumAttachments(), 0);
  EXPECT_EQ(loaded.GetPlainTextBody(), "Добрый день!\nReport attached.\n");
  EXPECT_EQ(loaded.GetHtmlBody(), "<p>Добрый день!</p>\n");
  EXPECT_EQ(loaded.GetMime().find("march.pdf"), std::string::npos);
  EXPECT_NE(loaded.GetMime().find("Received: from [10.0.0.7]"), std::string::npos);
}

TEST_F(Attachments, MessageThatIsOnlyAnAttachment) {
  test::WriteText(Path("only.bin"), "xyz");
  CkEmail mail;
  ASSERT_TRUE(mail.AddFileAttachment(Path("only.bin"), "application/zip"));
  mail.DropAttachments();
  EXPECT_EQ(mail.NumAttachments(), 0);
  ASSERT_TRUE(mail.SetTextBody("now with a body\n", "text/plain"));
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  EXPECT_EQ(back.GetPlainTextBody(), "now with a body\n");
  EXPECT_EQ(back.NumAttachments(), 0);
}

TEST_F(Attachments, MailFilesAttachAsMessagesAndSurviveDropping) {
  CkEmail mail;
  ASSERT_TRUE(mail.SetTextBody("forwarded", "text/plain"));
  ASSERT_TRUE(mail.AddFileAttachment(MailFixture("relayed.eml"), "message/rfc822"));
  test::WriteText(Path("x.bin"), "x");
  ASSERT_TRUE(mail.AddFileAttachment(Path("x.bin"), ""));
  EXPECT_EQ(mail.NumAttachments(), 1);
  ASSERT_EQ(mail.NumAttachedMessages(), 1);
  mail.DropAttachments();
  EXPECT_EQ(mail.NumAttachments(), 0);
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  ASSERT_EQ(back.NumAttachedMessages(), 1);
  std::unique_ptr<CkEmail> inner = back.GetAttachedMessage(0);
  ASSERT_NE(inner, nullptr);
  EXPECT_EQ(inner->Subject(), "Отчёт за март");
  EXPECT_EQ(inner->NumAttachments(), 1);
  EXPECT_EQ(inner->GetHeaderFieldName(1), "Received");
  EXPECT_EQ(back.GetPlainTextBody(), "forwarded");
}

// An HTML mail whose logo is a named inline image of a multipart/related.
const char kNewsletter[] =
    "From: news@example.org\r\n"
    "Subject: newsletter\r\n"
    "MIME-Version: 1.0\r\n"
    "Content-Type: multipart/related; boundary=\"rel\"\r\n"
    "\r\n"
    "--rel\r\n"
    "Content-Type: text/html; charset=utf-8\r\n"
    "\r\n"
    "<p>Hello <img src=\"cid:logo@x\"></p>\r\n"
    "--rel\r\n"
    "Content-Type: image/png; name=\"image001.png\"\r\n"
    "Content-Disposition: inline; filename=\"image001.png\"\r\n"
    "Content-ID: <logo@x>\r\n"
    "Content-Transfer-Encoding: base64\r\n"
    "\r\n"
    "iVBORw0KGgo=\r\n"
    "--rel--\r\n";

TEST_F(Attachments, InlineImagesOfRelatedHtmlAreNotAttachments) {
  CkEmail mail;
  ASSERT_TRUE(mail.SetFromMimeText(kNewsletter));
  EXPECT_TRUE(mail.HasHtmlBody());
  EXPECT_FALSE(mail.HasPlainTextBody());
  EXPECT_EQ(mail.NumAttachments(), 0);

  // A plain body goes beside the whole related tree, and dropping
  // attachments leaves the image the HTML refers to.
  ASSERT_TRUE(mail.SetTextBody("Hello", "text/plain"));
  mail.DropAttachments();
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  EXPECT_EQ(back.GetHeaderField("Content-Type").rfind("multipart/alternative", 0), 0u);
  EXPECT_EQ(back.GetPlainTextBody(), "Hello");
  EXPECT_EQ(back.GetHtmlBody(), "<p>Hello <img src=\"cid:logo@x\"></p>");
  EXPECT_EQ(back.NumAttachments(), 0);
  EXPECT_NE(back.GetMime().find("Content-ID: <logo@x>\r\n"), std::string::npos);
}

TEST_F(Attachments, DroppingEmptiesNestedMultipartsAway) {
  const char nested[] =
      "Subject: nested\r\nContent-Type: multipart/mixed; boundary=\"o\"\r\n\r\n"
      "--o\r\nContent-Type: text/plain\r\n\r\nbody\r\n"
      "--o\r\nContent-Type: multipart/mixed; boundary=\"i\"\r\n\r\n"
      "--i\r\nContent-Type: application/octet-stream\r\nContent-Disposition: attachment; "
      "filename=a.bin\r\n\r\naaa\r\n"
      "--i\r\nContent-Type: application/octet-stream\r\nContent-Disposition: attachment; "
      "filename=b.bin\r\n\r\nbbb\r\n"
      "--i--\r\n--o--\r\n";
  CkEmail mail;
  ASSERT_TRUE(mail.SetFromMimeText(nested));
  ASSERT_EQ(mail.NumAttachments(), 2);
  EXPECT_EQ(mail.GetAttachmentFilename(1), "b.bin");
  mail.DropAttachments();
  const std::string mime = mail.GetMime();
  EXPECT_EQ(mime.find("boundary"), std::string::npos) << mime;
  EXPECT_EQ(mail.GetHeaderField("Content-Type"), "text/plain");
  EXPECT_EQ(mail.GetPlainTextBody(), "body");
  EXPECT_EQ(mail.GetHeaderField("Subject"), "nested");
}

}  // namespace
}  // namespace marrow
