// Messages made elsewhere: what loading keeps, and the probes over them.
#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::MailFixture;

std::vector<std::string> FieldNames(const CkEmail& mail) {
  std::vector<std::string> names;
  for (int i = 0; i < mail.NumHeaderFields(); ++i) names.push_back(mail.GetHeaderFieldName(i));
  return names;
}

const std::vector<std::string> kRelayedFields = {
    "Return-Path", "Received", "Received", "X-Mailer",     "Message-ID", "Date",         "Subject",
    "From",        "To",       "Cc",       "MIME-Version", "X-Priority", "Content-Type", "X-Spam-Score"};

class LoadedMail : public test::ScratchDir {
 protected:
  void SetUp() override {
    ScratchDir::SetUp();
    ASSERT_TRUE(relayed_.LoadEml(MailFixture("relayed.eml")));
  }
  CkEmail relayed_;
};

TEST_F(LoadedMail, AccessorsAndTheHeaderWalkReadTheStoredFields) {
  ASSERT_EQ(FieldNames(relayed_), kRelayedFields);
  EXPECT_EQ(relayed_.GetHeaderFieldValue(1),
            "from mx2.example.org (mx2.example.org [192.0.2.20])\tby inbound.example.net with ESMTPS id "
            "4F2A1C0042\tfor <olga@example.net>; Tue, 05 Mar 2024 09:14:07 +0100 (CET)");
  EXPECT_EQ(relayed_.GetHeaderFieldValue(6), "Отчёт за март");
  EXPECT_EQ(relayed_.GetHeaderFieldName(14), "");
  EXPECT_EQ(relayed_.GetHeaderFieldValue(-1), "");
  EXPECT_EQ(relayed_.Subject(), "Отчёт за март");
  EXPECT_EQ(relayed_.From(), "Иван Петров <ivan@example.ru>");
  ASSERT_EQ(relayed_.NumTo(), 2);
  EXPECT_EQ(relayed_.GetTo(0), "Olga <olga@example.net>");
  EXPECT_EQ(relayed_.GetTo(1), "team@example.net");
  ASSERT_EQ(relayed_.NumCC(), 1);
  EXPECT_EQ(relayed_.GetCC(0), "Smith, Anna <anna@example.com>");
  std::int64_t date = 0;
  ASSERT_TRUE(relayed_.get_EmailDate(&date));
  EXPECT_EQ(date, 1709626440);
  EXPECT_EQ(relayed_.GetPlainTextBody(), "Добрый день!\nReport attached.\n");
  EXPECT_EQ(relayed_.GetHtmlBody(), "<p>Добрый день!</p>\n");
  ASSERT_EQ(relayed_.NumAttachments(), 1);
  EXPECT_EQ(relayed_.GetAttachmentContentType(0), "application/pdf");
  std::string pdf;
  ASSERT_TRUE(relayed_.GetAttachmentData(0, &pdf));
  EXPECT_EQ(pdf, "%PDF-1.4\n%\xC7\xEC\x8F\xA2\n");
  EXPECT_EQ(relayed_.NumAttachedMessages(), 0);
}

TEST_F(LoadedMail, UnchangedSavesByteForByteAndChangesKeepTheRoute) {
  const std::string original = test::ReadFile(MailFixture("relayed.eml"));
  ASSERT_TRUE(relayed_.SaveEml(Path("again.eml")));
  EXPECT_EQ(test::ReadFile(Path("again.eml")), original);

  relayed_.put_Subject("Re: отчёт");
  relayed_.AddHeaderField("X-Recovered", "yes");
  ASSERT_TRUE(relayed_.SaveEml(Path("changed.eml")));
  // Both folded Received fields exactly as they came, still first after Return-Path.
  const std::string after = test::ReadFile(Path("changed.eml"));
  const std::size_t from = original.find("Received:");
  const std::string received = original.substr(from, original.find("X-Mailer:") - from);
  EXPECT_EQ(after.find(received), after.find("Received:"));
  CkEmail back;
  ASSERT_TRUE(back.LoadEml(Path("changed.eml")));
  std::vector<std::string> expected = kRelayedFields;
  expected.push_back("X-Recovered");
  EXPECT_EQ(FieldNames(back), expected);
  EXPECT_EQ(back.Subject(), "Re: отчёт");
}

TEST_F(LoadedMail, RemoveHeaderFieldTakesEveryInstanceInAnyCase) {
  for (const char* name : {"received", "X-SPAM-SCORE", "To", "X-Not-There"}) relayed_.RemoveHeaderField(name);
  EXPECT_EQ(relayed_.NumTo(), 0);
  const std::vector<std::string> expected = {"Return-Path", "X-Mailer", "Message-ID",   "Date",       "Subject",
                                             "From",        "Cc",       "MIME-Version", "X-Priority", "Content-Type"};
  EXPECT_EQ(FieldNames(relayed_), expected);
  const std::string mime = relayed_.GetMime();
  EXPECT_EQ(mime.find("Received:"), std::string::npos);
  EXPECT_EQ(mime.find("\r\nTo:"), std::string::npos);
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mime));
  EXPECT_EQ(FieldNames(back), expected);
  EXPECT_EQ(back.NumAttachments(), 1) << "the body tree is untouched";
}

// Hostile messages as such are inputs of the mime fuzz target (tests/fuzz/corpus/mime).
TEST(HugeMail, MegabyteSubjectAndFortyThousandRecipientsAreKeptWhole) {
  const std::string big(1 << 20, 'a');
  CkEmail subject;
  ASSERT_TRUE(subject.SetFromMimeText("Subject: " + big + "\r\nFrom: a@b.org\r\n\r\nbody\r\n"));
  EXPECT_EQ(subject.Subject(), big);
  EXPECT_EQ(subject.From(), "a@b.org");
  std::string many = "To: ";
  for (int i = 0; i < 40000; ++i) many += "u" + std::to_string(i) + "@example.org, ";
  CkEmail recipients;
  ASSERT_TRUE(recipients.SetFromMimeText(many + "\r\n\r\nbody"));
  EXPECT_EQ(recipients.NumTo(), 40000);
}

}  // namespace
}  // namespace marrow
