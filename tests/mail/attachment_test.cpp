// Attachments and attached messages: names, bytes, fields and removal.
#include <algorithm>

#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::Hex;
using test::MailFixture;

class Attachments : public test::ScratchDir {};

TEST_F(Attachments, NamesWithBlanksAndNonAsciiKeepNameAndBytes) {
  const std::string names[] = {"Quarterly report – März 2024.pdf", "отчёт за март.xlsx", "報告 書.txt",
                               "plain name.bin"};
  std::string bytes;
  for (int b = 0; b < 3 * 256; ++b) bytes.push_back(static_cast<char>(b));
  CkEmail mail;
  ASSERT_TRUE(mail.SetTextBody("see attached", "text/plain"));
  for (const std::string& name : names)
    ASSERT_TRUE(mail.AddFileAttachment(Write(name, bytes + name), "application/octet-stream")) << mail.LastErrorText();
  ASSERT_TRUE(mail.SaveEml(Path("files.eml")));
  // Names go out as RFC 2231 UTF-8, never in a charset picked per name.
  const std::string mime = test::ReadFile(Path("files.eml"));
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
  const std::vector<std::string> dump = test::PythonDump(Path("files.eml"), &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  std::vector<std::string> files, expected;
  for (const std::string& line : dump) {
    if (line.starts_with("file\t")) files.push_back(line.substr(0, line.rfind('\t')));
  }
  for (const std::string& name : names)
    expected.push_back("file\tapplication/octet-stream\t" + Hex(name) + "\t" + Hex(bytes + name));
  EXPECT_EQ(files, expected);
  EXPECT_EQ(dump.back(), "defects\t0");
}

TEST_F(Attachments, WhatCannotBeReadOrIsOutOfRangeIsRefused) {
  CkEmail mail;
  EXPECT_FALSE(mail.AddFileAttachment(Path("no-such-file.pdf"), "application/pdf"));
  EXPECT_FALSE(mail.AddFileAttachment(Dir().string(), "application/pdf")) << "a folder";
  EXPECT_EQ(mail.NumAttachments(), 0);
  ASSERT_TRUE(mail.LoadEml(MailFixture("relayed.eml")));
  EXPECT_EQ(mail.GetAttachmentFilename(1), "");
  EXPECT_FALSE(mail.AddAttachmentHeader(7, "X-A", "b"));
  std::string data = "stale";
  EXPECT_FALSE(mail.GetAttachmentData(-1, &data));
  EXPECT_EQ(data, "");
  EXPECT_EQ(mail.GetAttachmentFilename(0), "march.pdf");
}

TEST_F(Attachments, AttachmentHeaderNameIsWrittenAsGiven) {
  CkEmail mail;
  ASSERT_TRUE(mail.SetHtmlBody("<img src=\"cid:logo@x\">"));
  ASSERT_TRUE(mail.AddFileAttachment(Write("logo.png", "\x89PNG\r\n\x1a\n"), "image/png"));
  ASSERT_TRUE(mail.AddAttachmentHeader(0, "Content-Id", "<old@x>"));
  ASSERT_TRUE(mail.AddAttachmentHeader(0, "content-iD", "<logo@x>"));  // replaces
  ASSERT_TRUE(mail.AddAttachmentHeader(0, "X-Note", "заметка"));
  ASSERT_TRUE(mail.SaveEml(Path("cid.eml")));
  const std::string mime = test::ReadFile(Path("cid.eml"));
  EXPECT_NE(mime.find("\r\ncontent-iD: <logo@x>\r\n"), std::string::npos);
  EXPECT_EQ(mime.find("<old@x>"), std::string::npos);
  EXPECT_EQ(mime.find("Content-Id"), std::string::npos);

  bool available = false;
  const std::vector<std::string> dump = test::PythonDump(Path("cid.eml"), &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  const auto image = std::find_if(dump.begin(), dump.end(),
                                  [](const std::string& line) { return line.starts_with("file\timage/png"); });
  ASSERT_NE(image, dump.end());
  EXPECT_NE(image->find("content-iD"), std::string::npos) << *image;
  EXPECT_EQ(dump.back(), "defects\t0");
}

TEST_F(Attachments, DroppingLoadedMessages) {
  CkEmail loaded;
  ASSERT_TRUE(loaded.LoadEml(MailFixture("relayed.eml")));
  loaded.DropAttachments();
  EXPECT_EQ(loaded.NumAttachments(), 0);
  EXPECT_EQ(loaded.GetPlainTextBody(), "Добрый день!\nReport attached.\n");
  EXPECT_EQ(loaded.GetHtmlBody(), "<p>Добрый день!</p>\n");
  EXPECT_EQ(loaded.GetMime().find("march.pdf"), std::string::npos);
  EXPECT_NE(loaded.GetMime().find("Received: from [10.0.0.7]"), std::string::npos);

  // Inline images of related HTML are no attachments: a plain body goes
  // beside the whole related tree, and dropping leaves the image.
  CkEmail news;
  ASSERT_TRUE(news.LoadEml(MailFixture("newsletter.eml")));  // a named inline image of a multipart/related
  EXPECT_EQ(news.NumAttachments(), 0);
  EXPECT_FALSE(news.HasPlainTextBody());
  ASSERT_TRUE(news.SetTextBody("Hello", "text/plain"));
  news.DropAttachments();
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(news.GetMime()));
  EXPECT_TRUE(back.GetHeaderField("Content-Type").starts_with("multipart/alternative"));
  EXPECT_EQ(back.GetPlainTextBody(), "Hello");
  EXPECT_EQ(back.GetHtmlBody(), "<p>Hello <img src=\"cid:logo@x\"></p>");
  EXPECT_EQ(back.NumAttachments(), 0);
  EXPECT_NE(back.GetMime().find("Content-ID: <logo@x>\r\n"), std::string::npos);

  // Multiparts emptied by dropping go away.
  CkEmail nested;
  ASSERT_TRUE(nested.LoadEml(MailFixture("nested_attachments.eml")));
  ASSERT_EQ(nested.NumAttachments(), 2);
  EXPECT_EQ(nested.GetAttachmentFilename(1), "b.bin");
  nested.DropAttachments();
  EXPECT_EQ(nested.GetMime().find("boundary"), std::string::npos) << nested.GetMime();
  EXPECT_EQ(nested.GetHeaderField("Content-Type"), "text/plain");
  EXPECT_EQ(nested.GetPlainTextBody(), "body");
  EXPECT_EQ(nested.GetHeaderField("Subject"), "nested");
}

}  // namespace
}  // namespace marrow
