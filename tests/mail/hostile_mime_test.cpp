// Damaged and hostile MIME: every call must return, whatever the input.
#include <random>

#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

// Parses `text` and, when that works, runs every reader and a few writers over it.
void Exercise(std::string_view text) {
  CkEmail mail;
  if (!mail.SetFromMimeText(text)) return;
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
  for (const char* name : {"relayed.eml", "report.eml"}) {
    const std::string whole = test::ReadFile(test::MailFixture(name));
    ASSERT_GT(whole.size(), 500u) << name;
    for (std::size_t cut = 1; cut < whole.size(); cut += 5) Exercise(whole.substr(0, cut));
  }
}

TEST(HostileMime, MegabyteHeaderLines) {
  const std::string big(1 << 20, 'a');
  CkEmail subject;
  ASSERT_TRUE(subject.SetFromMimeText("Subject: " + big + "\r\nFrom: a@b.org\r\n\r\nbody\r\n"));
  EXPECT_EQ(subject.Subject(), big);
  EXPECT_EQ(subject.From(), "a@b.org");
  Exercise(subject.GetMime());
  Exercise(big + "\r\n\r\nbody");

  std::string many = "To: ";
  for (int i = 0; i < 40000; ++i) many += "u" + std::to_string(i) + "@example.org, ";
  CkEmail recipients;
  ASSERT_TRUE(recipients.SetFromMimeText(many + "\r\n\r\nbody"));
  EXPECT_EQ(recipients.NumTo(), 40000);
}

TEST(HostileMime, NulBytesDeepNestingAndRandomBytes) {
  static const char kNuls[] =
      "Subject: a\0b\r\nFrom: x\0@y.org\r\nContent-Type: multipart/mixed; boundary=\"b\0\"\r\n\r\n"
      "--b\0\r\nContent-Type: text/plain\r\n\r\nbo\0dy\r\n--b\0--\r\n\0\0\0";
  const std::string nuls(kNuls, sizeof kNuls - 1);
  Exercise(nuls);

  std::string deep = "Content-Type: multipart/mixed; boundary=\"b0\"\r\n\r\n";
  for (int i = 1; i < 400; ++i)
    deep += "--b" + std::to_string(i - 1) + "\r\nContent-Type: multipart/mixed; boundary=\"b" + std::to_string(i) +
            "\"\r\n\r\n";
  deep += "--b399\r\nContent-Type: text/plain\r\n\r\ndeep\r\n";
  CkEmail nested;
  ASSERT_TRUE(nested.SetFromMimeText(deep));
  Exercise(deep);

  std::mt19937 random(20240305);
  for (int round = 0; round < 40; ++round) {
    std::string noise(4096, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    // Half the rounds start like a message so the parser goes further in.
    if (round % 2 == 0) noise = "Content-Type: multipart/mixed; boundary=x\r\n\r\n--x\r\n" + noise;
    Exercise(noise);
  }
}

}  // namespace
}  // namespace marrow
