// Messages built with CkEmail: what they write, and what reads them back.
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "tests/mail/mail_test_files.h"

namespace marrow {
namespace {

using test::Hex;
using test::MailFiles;

// Every line of a written message: ASCII only, CRLF-terminated, at most 998
// characters; the things RFC 5322 transports rely on.
void ExpectTransportSafe(const std::string& mime) {
  std::size_t lineStart = 0;
  for (std::size_t i = 0; i < mime.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(mime[i]);
    ASSERT_LT(c, 0x80) << "non-ASCII byte at " << i;
    if (c == '\n') {
      ASSERT_TRUE(i > 0 && mime[i - 1] == '\r') << "bare LF at " << i;
      ASSERT_LE(i - 1 - lineStart, 998u) << "long line at " << lineStart;
      lineStart = i + 1;
    }
  }
}

struct TextCase {
  const char* what;
  std::string subject;
  std::string plain;
  std::string html;
  std::string name = "Иван Петров";  // the sender's
};

const TextCase kTexts[] = {
    {"Cyrillic", "Отчёт за март: итоги", "Добрый день!\nОтчёт во вложении.\n",
     "<p>Добрый день!</p>"},
    {"CJK", "会議の議事録 / 会议纪要 / 회의록", "お疲れ様です。\n議事録を送ります。",
     "<p>你好，世界</p>\n"},
    {"long mixed subject",
     "Ünïcödé and ASCII words repeated to force folding of the subject field across several lines "
     "— Ωμέγα — 終わり — and a tail that keeps going well beyond seventy-eight columns",
     "trailing blanks kept   \nand a line that is rather long " + std::string(200, 'x') + "\n",
     "<b>é</b>"},
    // Texts whose encoded words readers that join the words (GMime) cut at
    // the first padding unless every word but the last holds whole groups.
    {"CJK split after padding", "コム ドット イグザンプル 殿", "本文\n", "<p>本文</p>",
     "コム ドット イグザンプル 殿"},
    {"long CJK", "第一四半期の売上報告と来期の予算計画についての打ち合わせのお知らせです", "x\n", "<p>x</p>",
     "東京都千代田区丸の内一丁目営業部第二課課長代理補佐"},
    {"widths that never make whole groups", [] {
       std::string s;
       for (int i = 0; i < 40; ++i) s += i % 2 ? "é" : "a";
       return s;
     }(),
     "y\n", "<p>y</p>"},
};

class BuiltMessage : public MailFiles {};

TEST_F(BuiltMessage, NonAsciiSubjectAndBodiesSurviveSaveAndLoad) {
  for (const TextCase& c : kTexts) {
    SCOPED_TRACE(c.what);
    CkEmail mail;
    mail.put_Subject(c.subject);
    mail.put_From(c.name + " <ivan@example.ru>");
    ASSERT_TRUE(mail.SetTextBody(c.plain, "text/plain"));
    ASSERT_TRUE(mail.SetHtmlBody(c.html));
    const std::string path = Path("out.eml");
    ASSERT_TRUE(mail.SaveEml(path));
    ExpectTransportSafe(test::ReadText(path));

    CkEmail back;
    ASSERT_TRUE(back.LoadEml(path));
    EXPECT_EQ(back.Subject(), c.subject);
    EXPECT_EQ(back.GetPlainTextBody(), c.plain);
    EXPECT_EQ(back.GetHtmlBody(), c.html);
    EXPECT_EQ(back.From(), c.name + " <ivan@example.ru>");
    EXPECT_EQ(test::GMimeSubject(path), c.subject);
  }
}

TEST_F(BuiltMessage, PythonReadsSubjectSenderAndBodies) {
  std::vector<std::string> paths;
  for (const TextCase& c : kTexts) {
    CkEmail mail;
    mail.put_Subject(c.subject);
    mail.put_From(c.name + "<ivan@example.ru>");
    ASSERT_TRUE(mail.AddMultipleTo("A<a@x.org>;Ölaf B <b@y.org>;c@z.org"));
    ASSERT_TRUE(mail.SetTextBody(c.plain, "text/plain"));
    ASSERT_TRUE(mail.SetHtmlBody(c.html));
    paths.push_back(Path(std::to_string(paths.size()) + ".eml"));
    ASSERT_TRUE(mail.SaveEml(paths.back()));
  }
  bool available = false;
  const auto dumps = test::PythonDumps(paths, &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  ASSERT_EQ(dumps.size(), paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const TextCase& c = kTexts[i];
    SCOPED_TRACE(c.what);
    const std::vector<std::string> expected = {
        "subject\t" + Hex(c.subject),
        "from\t" + Hex(c.name) + "\tivan@example.ru",
        "to\t" + Hex("A") + "\ta@x.org",
        "to\t" + Hex("Ölaf B") + "\tb@y.org",
        "to\t\tc@z.org",
        "multipart\tmultipart/alternative",
        "text\ttext/plain\t" + Hex(c.plain),
        "text\ttext/html\t" + Hex(c.html),
        "defects\t0",
    };
    std::vector<std::string> got;
    for (const std::string& line : dumps[i]) {
      if (line.rfind("boundary\t", 0) == 0) continue;
      // Field-name lists vary with the encoding chosen.
      got.push_back(line.rfind("text\t", 0) == 0 ? line.substr(0, line.rfind('\t')) : line);
    }
    EXPECT_EQ(got, expected);
  }
}

TEST_F(BuiltMessage, SingleBodyEndingInALineEndRoundTripsExactly) {
  CkEmail mail;
  const std::string text = "Здравствуйте!\nВторая строка.\n";
  ASSERT_TRUE(mail.SetTextBody(text, "text/plain"));
  ASSERT_TRUE(mail.SaveEml(Path("single.eml")));
  CkEmail back;
  ASSERT_TRUE(back.LoadEml(Path("single.eml")));
  EXPECT_EQ(back.GetPlainTextBody(), text);
  bool available = false;
  const std::vector<std::string> dump = test::PythonDump(Path("single.eml"), &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  ASSERT_GE(dump.size(), 2u);
  EXPECT_EQ(dump[1].substr(0, dump[1].rfind('\t')), "text\ttext/plain\t" + Hex(text));
}

TEST_F(BuiltMessage, RecipientsFromSemicolonLists) {
  CkEmail mail;
  ASSERT_TRUE(mail.AddMultipleTo("A<a@x.org>;B <b@y.org>;c@z.org"));
  ASSERT_TRUE(mail.AddMultipleCC("\"Berg, Anna\" <anna@x.org>"));
  ASSERT_TRUE(mail.AddMultipleBcc("hidden@x.org;Nobody Known"));
  ASSERT_EQ(mail.NumTo(), 3);
  EXPECT_EQ(mail.GetTo(0), "A <a@x.org>");
  EXPECT_EQ(mail.GetTo(1), "B <b@y.org>");
  EXPECT_EQ(mail.GetTo(2), "c@z.org");
  EXPECT_EQ(mail.GetToAddr(1), "b@y.org");
  EXPECT_EQ(mail.GetTo(3), "");
  EXPECT_EQ(mail.GetToAddr(-1), "");

  // A second list appends; the counts survive writing and reading.
  ASSERT_TRUE(mail.AddMultipleTo("d@w.org"));
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  ASSERT_EQ(back.NumTo(), 4);
  EXPECT_EQ(back.GetTo(3), "d@w.org");
  ASSERT_EQ(back.NumCC(), 1);
  EXPECT_EQ(back.GetCC(0), "Berg, Anna <anna@x.org>");
  EXPECT_EQ(back.GetCCAddr(0), "anna@x.org");
  ASSERT_EQ(back.NumBcc(), 2);
  EXPECT_EQ(back.GetBccAddr(0), "hidden@x.org");
  EXPECT_EQ(back.GetBcc(1), "Nobody Known");  // a name without an address
  EXPECT_EQ(back.GetBccAddr(1), "");
}

TEST_F(BuiltMessage, EmptyRecipientListsAreRefused) {
  CkEmail mail;
  for (const char* list : {"", " ; ;"}) {
    EXPECT_FALSE(mail.AddMultipleTo(list));
    EXPECT_EQ(mail.LastErrorText(), "No email addresses were provided");
    EXPECT_FALSE(mail.AddMultipleCC(list));
    EXPECT_FALSE(mail.AddMultipleBcc(list));
  }
  EXPECT_EQ(mail.NumTo() + mail.NumCC() + mail.NumBcc(), 0);
  EXPECT_TRUE(mail.AddMultipleTo("a@x.org"));
  EXPECT_EQ(mail.LastErrorText(), "");
}

TEST_F(BuiltMessage, SenderInEveryAcceptedForm) {
  struct Case {
    const char* in;
    const char* shown;
    const char* name;
    const char* addr;
  };
  const Case cases[] = {
      {"Anna Berg <anna@x.org>", "Anna Berg <anna@x.org>", "Anna Berg", "anna@x.org"},
      {"Anna Berg<anna@x.org>", "Anna Berg <anna@x.org>", "Anna Berg", "anna@x.org"},
      {"anna@x.org", "anna@x.org", "", "anna@x.org"},
      {"Anna Berg", "Anna Berg", "Anna Berg", ""},
      {"Åsa Öberg", "Åsa Öberg", "Åsa Öberg", ""},
  };
  for (const Case& c : cases) {
    CkEmail mail;
    mail.put_From("someone@else.org");
    mail.put_From(c.in);  // replaces
    CkEmail back;
    ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
    EXPECT_EQ(back.From(), c.shown) << c.in;
    EXPECT_EQ(back.FromName(), c.name) << c.in;
    EXPECT_EQ(back.FromAddress(), c.addr) << c.in;
  }
}

// Sets TZ for one scope; the zone files must exist for the test to mean anything.
class ZoneScope {
 public:
  explicit ZoneScope(const char* zone) {
    if (const char* old = std::getenv("TZ")) {
      old_ = old;
      hadOld_ = true;
    }
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~ZoneScope() {
    if (hadOld_)
      ::setenv("TZ", old_.c_str(), 1);
    else
      ::unsetenv("TZ");
    ::tzset();
  }

 private:
  std::string old_;
  bool hadOld_ = false;
};

TEST_F(BuiltMessage, DatesFromUtcAndFromLocalWallTime) {
  CkEmail mail;
  std::int64_t seconds = 0;
  EXPECT_FALSE(mail.get_EmailDate(&seconds));

  mail.put_EmailDate(1709626440);  // 2024-03-05 08:14:00 UTC
  ASSERT_TRUE(mail.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, 1709626440);
  EXPECT_EQ(mail.GetHeaderField("Date"), "Tue, 05 Mar 2024 08:14:00 +0000");
  CkEmail unreadable;
  ASSERT_TRUE(
      unreadable.SetFromMimeText("Date: the day after tomorrow\r\nSubject: x\r\n\r\nbody\r\n"));
  EXPECT_FALSE(unreadable.get_EmailDate(&seconds));

  if (!std::filesystem::exists("/usr/share/zoneinfo/Europe/Berlin"))
    GTEST_SKIP() << "no zone files";
  ZoneScope berlin("Europe/Berlin");
  // Wall-clock 2024-07-01 12:00:00 in summer (+0200) and 2024-01-15 12:00:00 in winter (+0100).
  const std::int64_t summerWall = 1719835200, winterWall = 1705320000;
  mail.put_LocalDate(summerWall);
  ASSERT_TRUE(mail.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, summerWall - 7200);
  EXPECT_EQ(mail.GetHeaderField("Date"), "Mon, 01 Jul 2024 12:00:00 +0200");
  mail.put_LocalDate(winterWall);
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  ASSERT_TRUE(back.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, winterWall - 3600);
  EXPECT_EQ(back.GetHeaderField("Date"), "Mon, 15 Jan 2024 12:00:00 +0100");
}

// The written tree as Python sees it: each part's kind and content type.
std::vector<std::string> Shape(const std::vector<std::string>& dump) {
  std::vector<std::string> shape;
  for (const std::string& line : dump) {
    const std::size_t tab = line.find('\t');
    const std::string kind = line.substr(0, tab);
    if (kind == "multipart" || kind == "text" || kind == "file")
      shape.push_back(line.substr(0, line.find('\t', tab + 1)));
    else if (kind == "defects")
      shape.push_back(line);
  }
  return shape;
}

TEST_F(BuiltMessage, StructureIsTheSameWhateverTheOrderOfCalls) {
  test::WriteText(Path("data.bin"), "\x01\x02\x03");
  const std::vector<std::string> orders = {"pha", "hpa", "aph", "ahp", "pah", "hap"};
  std::vector<std::string> paths;
  for (const std::string& order : orders) {
    CkEmail mail;
    mail.put_Subject("order");
    for (char step : order) {
      bool ok = false;
      if (step == 'p') ok = mail.SetTextBody("plain", "text/plain");
      if (step == 'h') ok = mail.SetHtmlBody("<p>html</p>");
      if (step == 'a') ok = mail.AddFileAttachment(Path("data.bin"), "");
      ASSERT_TRUE(ok) << step;
    }
    EXPECT_EQ(mail.GetPlainTextBody(), "plain");
    EXPECT_EQ(mail.GetHtmlBody(), "<p>html</p>");
    paths.push_back(Path(order + ".eml"));
    ASSERT_TRUE(mail.SaveEml(paths.back()));
  }
  bool available = false;
  const auto dumps = test::PythonDumps(paths, &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  ASSERT_EQ(dumps.size(), orders.size());
  const std::vector<std::string> expected = {"multipart\tmultipart/mixed",
                                             "multipart\tmultipart/alternative",
                                             "text\ttext/plain",
                                             "text\ttext/html",
                                             "file\tapplication/octet-stream",
                                             "defects\t0"};
  for (std::size_t i = 0; i < orders.size(); ++i)
    EXPECT_EQ(Shape(dumps[i]), expected) << "calls in order " << orders[i];
}

TEST_F(BuiltMessage, SingleBodiesStayBareAndSettingAgainReplaces) {
  CkEmail mail;
  ASSERT_TRUE(mail.SetTextBody("first", "text/plain"));
  ASSERT_TRUE(mail.SetTextBody("second", "text/plain; format=flowed; charset=koi8-r"));
  EXPECT_EQ(mail.GetPlainTextBody(), "second");
  EXPECT_FALSE(mail.HasHtmlBody());
  EXPECT_EQ(mail.NumAttachments(), 0);
  EXPECT_EQ(mail.GetHeaderField("Content-Type"), "text/plain; format=flowed; charset=utf-8");

  ASSERT_TRUE(mail.AddHtmlAlternativeBody("<i>one</i>"));
  ASSERT_TRUE(mail.AddHtmlAlternativeBody("<i>two</i>"));
  ASSERT_TRUE(mail.AddPlainTextAlternativeBody("third"));
  EXPECT_EQ(mail.GetHtmlBody(), "<i>two</i>");
  EXPECT_EQ(mail.GetPlainTextBody(), "third");
  EXPECT_EQ(mail.NumAttachments(), 0);
  EXPECT_EQ(mail.GetHeaderField("Content-Type").rfind("multipart/alternative", 0), 0u);

  ASSERT_TRUE(mail.SetTextBody("<b>via SetTextBody</b>", "text/html"));
  EXPECT_EQ(mail.GetHtmlBody(), "<b>via SetTextBody</b>");
  EXPECT_FALSE(mail.SetTextBody("{}", "application/json"));
  EXPECT_EQ(mail.LastErrorText(), "Unsupported body content type: application/json");
  EXPECT_EQ(mail.GetPlainTextBody(), "third");
}

TEST_F(BuiltMessage, BodyCharsetIsUsedWhenTheTextFits) {
  CkEmail mail;
  ASSERT_TRUE(mail.put_Charset("iso-8859-1"));
  ASSERT_TRUE(mail.SetTextBody("café crème", "text/plain"));
  EXPECT_NE(mail.GetMime().find("charset=iso-8859-1"), std::string::npos);
  EXPECT_EQ(mail.GetPlainTextBody(), "café crème");

  // Cyrillic does not fit Latin-1: the body goes out as UTF-8 rather than lossy.
  ASSERT_TRUE(mail.SetTextBody("café и чай", "text/plain"));
  EXPECT_NE(mail.GetMime().find("charset=utf-8"), std::string::npos);
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  EXPECT_EQ(back.GetPlainTextBody(), "café и чай");

  EXPECT_FALSE(mail.put_Charset("no-such-charset"));
  EXPECT_EQ(mail.Charset(), "iso-8859-1");
}

TEST_F(BuiltMessage, HtmlFromBytesInANamedCharset) {
  CkEmail mail;
  // "<p>Привет</p>" in windows-1251.
  const std::string cp1251 = "<p>\xCF\xF0\xE8\xE2\xE5\xF2</p>";
  ASSERT_TRUE(mail.SetMbHtmlBody("windows-1251", cp1251));
  EXPECT_EQ(mail.GetHtmlBody(), "<p>Привет</p>");
  ASSERT_TRUE(mail.put_Charset("koi8-r"));
  ASSERT_TRUE(mail.SetMbHtmlBody("windows-1251", cp1251));
  EXPECT_NE(mail.GetMime().find("charset=koi8-r"), std::string::npos);
  EXPECT_EQ(mail.GetHtmlBody(), "<p>Привет</p>");
  EXPECT_FALSE(mail.SetMbHtmlBody("no-such-charset", "x"));
}

TEST_F(BuiltMessage, AddedHeaderFieldsAreEncodedAndReadBack) {
  CkEmail mail;
  mail.AddHeaderField("X-Folder", "Входящие/Проекты");
  mail.AddHeaderField("Message-ID", "<abc@example.org>");
  EXPECT_EQ(mail.GetHeaderField("x-folder"), "Входящие/Проекты");
  EXPECT_EQ(mail.GetHeaderField("message-id"), "<abc@example.org>");
  ExpectTransportSafe(mail.GetMime());
}

TEST_F(BuiltMessage, SavingToAnUnwritablePlaceFails) {
  CkEmail mail;
  EXPECT_FALSE(mail.SaveEml(Path("missing-dir/out.eml")));
  EXPECT_NE(mail.LastErrorText().find("Failed to write file"), std::string::npos);
  EXPECT_FALSE(mail.LoadEml(Path("missing.eml")));
  EXPECT_FALSE(mail.SetFromMimeText(""));
}

}  // namespace
}  // namespace marrow
