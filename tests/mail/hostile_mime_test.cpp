// Damaged and hostile MIME: every call must return, whatever the input.
#include <random>

#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "mail/ck_mime.h"
#include "tests/mail/mail_test_files.h"

namespace marrow {
namespace {

// Runs every reader and a few writers over a parsed message.
void Exercise(CkEmail& mail) {
  std::int64_t date = 0;
  mail.get_EmailDate(&date);
  (void)mail.From();
  (void)mail.Subject();
  for (int i = 0; i < mail.NumTo() + 1; ++i) (void)mail.GetTo(i);
  for (int i = 0; i < mail.NumHeaderFields(); ++i) (void)mail.GetHeaderFieldValue(i);
  (void)mail.GetPlainTextBody();
  (void)mail.GetHtmlBody();
  std::string data;
  for (int i = 0; i < mail.NumAttachments(); ++i) {
    (void)mail.GetAttachmentFilename(i);
    mail.GetAttachmentData(i, &data);
  }
  for (int i = 0; i < mail.NumAttachedMessages(); ++i) (void)mail.GetAttachedMessage(i);
  CkEmail again;
  again.SetFromMimeText(mail.GetMime());
  mail.SetHtmlBody("<p>x</p>");
  mail.DropAttachments();
  (void)mail.GetMime();
}

TEST(HostileMime, EveryTruncationOfARealMessage) {
  const std::string whole = test::ReadText(test::MailFixture("relayed.eml"));
  ASSERT_GT(whole.size(), 1000u);
  for (std::size_t cut = 1; cut < whole.size(); cut += 7) {
    CkEmail mail;
    if (mail.SetFromMimeText(whole.substr(0, cut))) Exercise(mail);
  }
  const std::string report = test::ReadText(test::MailFixture("report.eml"));
  for (std::size_t cut = 1; cut < report.size(); cut += 5) {
    CkEmail mail;
    if (mail.SetFromMimeText(report.substr(0, cut))) Exercise(mail);
  }
}

TEST(HostileMime, MegabyteHeaderLines) {
  const std::string big(1 << 20, 'a');
  CkEmail subject;
  ASSERT_TRUE(subject.SetFromMimeText("Subject: " + big + "\r\nFrom: a@b.org\r\n\r\nbody\r\n"));
  EXPECT_EQ(subject.Subject(), big);
  EXPECT_EQ(subject.From(), "a@b.org");
  Exercise(subject);

  CkEmail noColon;
  noColon.SetFromMimeText(big + "\r\n\r\nbody");
  Exercise(noColon);

  std::string many = "To: ";
  for (int i = 0; i < 40000; ++i) many += "u" + std::to_string(i) + "@example.org, ";
  CkEmail recipients;
  ASSERT_TRUE(recipients.SetFromMimeText(many + "\r\n\r\nbody"));
  EXPECT_EQ(recipients.NumTo(), 40000);
}

TEST(HostileMime, NulBytesInHeaderAndBody) {
  static const char kRaw[] =
      "Subject: a\0b\r\nFrom: x\0@y.org\r\nContent-Type: multipart/mixed; boundary=\"b\0\"\r\n\r\n"
      "--b\0\r\nContent-Type: text/plain\r\n\r\nbo\0dy\r\n--b\0--\r\n\0\0\0";
  const std::string text(kRaw, sizeof kRaw - 1);
  CkEmail mail;
  if (mail.SetFromMimeText(text)) Exercise(mail);
  CkMime mime;
  if (mime.LoadMime(text)) {
    mime.SetBoundary("--VOR");
    (void)mime.GetMime();
  }
}

TEST(HostileMime, DeepNestingAndRandomBytes) {
  std::string deep = "Content-Type: multipart/mixed; boundary=\"b0\"\r\n\r\n";
  for (int i = 1; i < 400; ++i)
    deep += "--b" + std::to_string(i - 1) + "\r\nContent-Type: multipart/mixed; boundary=\"b" +
            std::to_string(i) + "\"\r\n\r\n";
  deep += "--b399\r\nContent-Type: text/plain\r\n\r\ndeep\r\n";
  CkEmail nested;
  ASSERT_TRUE(nested.SetFromMimeText(deep));
  Exercise(nested);

  std::mt19937 random(20240305);
  for (int round = 0; round < 40; ++round) {
    std::string noise(4096, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    // Half the rounds start like a message so the parser goes further in.
    if (round % 2 == 0) noise = "Content-Type: multipart/mixed; boundary=x\r\n\r\n--x\r\n" + noise;
    CkEmail mail;
    if (mail.SetFromMimeText(noise)) Exercise(mail);
  }
}

}  // namespace
}  // namespace marrow
