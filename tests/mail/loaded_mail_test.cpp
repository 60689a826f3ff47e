// Messages made elsewhere: what loading keeps, and the probes over them.
#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "tests/mail/mail_test_files.h"

namespace marrow {
namespace {

using test::MailFiles;
using test::MailFixture;

// The header block of written MIME: everything before the first blank line.
std::string HeaderBlock(const std::string& mime) {
  const std::size_t end = mime.find("\r\n\r\n");
  return end == std::string::npos ? mime : mime.substr(0, end + 2);
}

std::vector<std::string> FieldNames(const CkEmail& mail) {
  std::vector<std::string> names;
  for (int i = 0; i < mail.NumHeaderFields(); ++i) names.push_back(mail.GetHeaderFieldName(i));
  return names;
}

const std::vector<std::string> kRelayedFields = {
    "Return-Path",  "Received",   "Received",     "X-Mailer",    "Message-ID",
    "Date",         "Subject",    "From",         "To",          "Cc",
    "MIME-Version", "X-Priority", "Content-Type", "X-Spam-Score"};

class LoadedMail : public MailFiles {};

TEST_F(LoadedMail, SavingWithoutChangesKeepsTheFileByteForByte) {
  CkEmail mail;
  ASSERT_TRUE(mail.LoadEml(MailFixture("relayed.eml")));
  ASSERT_TRUE(mail.SaveEml(Path("again.eml")));
  EXPECT_EQ(test::ReadText(Path("again.eml")), test::ReadText(MailFixture("relayed.eml")));
}

TEST_F(LoadedMail, ChangesKeepReceivedLinesAndFieldOrder) {
  CkEmail mail;
  ASSERT_TRUE(mail.LoadEml(MailFixture("relayed.eml")));
  mail.put_Subject("Re: отчёт");
  mail.AddHeaderField("X-Recovered", "yes");
  ASSERT_TRUE(mail.SaveEml(Path("changed.eml")));

  const std::string before = HeaderBlock(test::ReadText(MailFixture("relayed.eml")));
  const std::string after = HeaderBlock(test::ReadText(Path("changed.eml")));
  // Both folded Received fields, exactly as they came, still first after Return-Path.
  const std::string received =
      before.substr(before.find("Received:"), before.find("X-Mailer:") - before.find("Received:"));
  EXPECT_EQ(after.find(received), after.find("Received:"));
  EXPECT_NE(after.find("\tfor <olga@example.net>; Tue, 05 Mar 2024 09:14:07 +0100 (CET)\r\n"),
            std::string::npos);

  CkEmail back;
  ASSERT_TRUE(back.LoadEml(Path("changed.eml")));
  std::vector<std::string> expected = kRelayedFields;
  expected.push_back("X-Recovered");
  EXPECT_EQ(FieldNames(back), expected);
  EXPECT_EQ(back.Subject(), "Re: отчёт");
}

TEST_F(LoadedMail, HeaderWalkGivesStoredOrderAndDecodedValues) {
  CkEmail mail;
  ASSERT_TRUE(mail.LoadEml(MailFixture("relayed.eml")));
  ASSERT_EQ(FieldNames(mail), kRelayedFields);
  EXPECT_EQ(
      mail.GetHeaderFieldValue(1),
      "from mx2.example.org (mx2.example.org [192.0.2.20])\tby inbound.example.net with ESMTPS id "
      "4F2A1C0042\tfor <olga@example.net>; Tue, 05 Mar 2024 09:14:07 +0100 (CET)");
  EXPECT_EQ(mail.GetHeaderFieldValue(6), "Отчёт за март");
  EXPECT_EQ(mail.GetHeaderFieldValue(7), "Иван Петров <ivan@example.ru>");
  EXPECT_EQ(mail.GetHeaderFieldName(14), "");
  EXPECT_EQ(mail.GetHeaderFieldValue(-1), "");
}

TEST_F(LoadedMail, AccessorsReadTheLoadedFields) {
  CkEmail mail;
  ASSERT_TRUE(mail.LoadEml(MailFixture("relayed.eml")));
  EXPECT_EQ(mail.Subject(), "Отчёт за март");
  EXPECT_EQ(mail.From(), "Иван Петров <ivan@example.ru>");
  ASSERT_EQ(mail.NumTo(), 2);
  EXPECT_EQ(mail.GetTo(0), "Olga <olga@example.net>");
  EXPECT_EQ(mail.GetTo(1), "team@example.net");
  ASSERT_EQ(mail.NumCC(), 1);
  EXPECT_EQ(mail.GetCC(0), "Smith, Anna <anna@example.com>");
  std::int64_t date = 0;
  ASSERT_TRUE(mail.get_EmailDate(&date));
  EXPECT_EQ(date, 1709626440);
  EXPECT_EQ(mail.GetPlainTextBody(), "Добрый день!\nReport attached.\n");
  EXPECT_EQ(mail.GetHtmlBody(), "<p>Добрый день!</p>\n");
  ASSERT_EQ(mail.NumAttachments(), 1);
  EXPECT_EQ(mail.GetAttachmentFilename(0), "march.pdf");
  EXPECT_EQ(mail.GetAttachmentContentType(0), "application/pdf");
  std::string pdf;
  ASSERT_TRUE(mail.GetAttachmentData(0, &pdf));
  EXPECT_EQ(pdf, "%PDF-1.4\n%\xC7\xEC\x8F\xA2\n");
  EXPECT_EQ(mail.NumAttachedMessages(), 0);
}

TEST_F(LoadedMail, RemoveHeaderFieldTakesEveryInstanceInAnyCase) {
  CkEmail mail;
  ASSERT_TRUE(mail.LoadEml(MailFixture("relayed.eml")));
  mail.RemoveHeaderField("received");
  mail.RemoveHeaderField("X-SPAM-SCORE");
  mail.RemoveHeaderField("To");
  mail.RemoveHeaderField("X-Not-There");
  EXPECT_EQ(mail.NumTo(), 0);
  const std::vector<std::string> expected = {
      "Return-Path", "X-Mailer", "Message-ID",   "Date",       "Subject",
      "From",        "Cc",       "MIME-Version", "X-Priority", "Content-Type"};
  EXPECT_EQ(FieldNames(mail), expected);
  const std::string mime = mail.GetMime();
  EXPECT_EQ(mime.find("Received:"), std::string::npos);
  EXPECT_EQ(mime.find("\r\nTo:"), std::string::npos);
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mime));
  EXPECT_EQ(FieldNames(back), expected);
  EXPECT_EQ(back.NumAttachments(), 1) << "the body tree is untouched";
}

TEST_F(LoadedMail, DeliveryReportCountsItsTextPart) {
  CkEmail mail;
  ASSERT_TRUE(mail.LoadEml(MailFixture("report.eml")));
  EXPECT_TRUE(mail.HasPlainTextBody());
  EXPECT_FALSE(mail.HasHtmlBody());
  EXPECT_EQ(mail.GetPlainTextBody().rfind("I'm sorry to have to inform you", 0), 0u);
  ASSERT_EQ(mail.NumAttachments(), 1);
  EXPECT_EQ(mail.GetAttachmentContentType(0), "message/delivery-status");
  ASSERT_EQ(mail.NumAttachedMessages(), 1);
  std::unique_ptr<CkEmail> original = mail.GetAttachedMessage(0);
  ASSERT_NE(original, nullptr);
  EXPECT_EQ(original->Subject(), "Lunch?");
  EXPECT_EQ(original->GetPlainTextBody(), "Are you free at noon?\n");
  EXPECT_EQ(mail.GetAttachedMessage(1), nullptr);
  EXPECT_EQ(mail.GetAttachedMessage(-1), nullptr);
}

TEST_F(LoadedMail, AddingAnHtmlBodyToAReportKeepsItsParts) {
  CkEmail mail;
  ASSERT_TRUE(mail.LoadEml(MailFixture("report.eml")));
  const std::string text = mail.GetPlainTextBody();
  ASSERT_TRUE(mail.SetHtmlBody("<p>bounced</p>"));
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  EXPECT_EQ(back.GetPlainTextBody(), text);
  EXPECT_EQ(back.GetHtmlBody(), "<p>bounced</p>");
  EXPECT_EQ(back.NumAttachments(), 1);
  EXPECT_EQ(back.NumAttachedMessages(), 1);
  EXPECT_EQ(back.GetHeaderField("Content-Type").rfind("multipart/report", 0), 0u);
}

}  // namespace
}  // namespace marrow
