// Messages built with CkEmail: what they write, and what reads them back.
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <gtest/gtest.h>

#include "mail/ck_email.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

using test::Hex;

// Every line of a written message: ASCII only, CRLF-terminated, at most 998
// characters; the things RFC 5322 transports rely on.
void ExpectTransportSafe(const std::string& mime) {
  std::size_t lineStart = 0;
  for (std::size_t i = 0; i < mime.size(); ++i) {
    ASSERT_LT(static_cast<unsigned char>(mime[i]), 0x80) << "non-ASCII byte at " << i;
    if (mime[i] == '\n') {
      ASSERT_TRUE(i > 0 && mime[i - 1] == '\r') << "bare LF at " << i;
      ASSERT_LE(i - 1 - lineStart, 998u) << "long line at " << lineStart;
      lineStart = i + 1;
    }
  }
}

// Python's lines for a file without the boundary and each part's list of
// field names; with `typesOnly`, only each part's kind and content type and
// the count of defects.
std::vector<std::string> Shape(const std::vector<std::string>& dump, bool typesOnly) {
  std::vector<std::string> out;
  for (std::string line : dump) {
    const std::string kind = line.substr(0, line.find('\t'));
    const bool part = kind == "multipart" || kind == "text" || kind == "file";
    if (kind == "text" || kind == "file") line.erase(line.rfind('\t'));
    if (typesOnly && part) line.erase(std::min(line.size(), line.find('\t', kind.size() + 1)));
    if (kind != "boundary" && (!typesOnly || part || kind == "defects")) out.push_back(line);
  }
  return out;
}

struct TextCase {
  const char* what;
  std::string subject;
  std::string plain;
  std::string html;                  // "": a single plain body
  std::string name = "Иван Петров";  // the sender's
};

const TextCase kTexts[] = {
    {"Cyrillic", "Отчёт за март: итоги", "Добрый день!\nОтчёт во вложении.\n", "<p>Добрый день!</p>"},
    {"CJK", "会議の議事録 / 会议纪要 / 회의록", "お疲れ様です。\n議事録を送ります。", "<p>你好，世界</p>\n"},
    {"long mixed subject",
     "Ünïcödé and ASCII words repeated to force folding of the subject field across several lines "
     "— Ωμέγα — 終わり — and a tail that keeps going well beyond seventy-eight columns",
     "trailing blanks kept   \nand a line that is rather long " + std::string(200, 'x') + "\n", "<b>é</b>"},
    // Texts whose encoded words readers that join the words (GMime) cut at
    // the first padding unless every word but the last holds whole groups.
    {"CJK split after padding", "コム ドット イグザンプル 殿", "本文\n", "<p>本文</p>", "コム ドット イグザンプル 殿"},
    {"long CJK", "第一四半期の売上報告と来期の予算計画についての打ち合わせのお知らせです", "x\n", "<p>x</p>",
     "東京都千代田区丸の内一丁目営業部第二課課長代理補佐"},
    {"widths that never make whole groups",
     [] {
       std::string s;
       for (int i = 0; i < 40; ++i) s += i % 2 ? "é" : "a";
       return s;
     }(),
     "y\n", "<p>y</p>"},
    {"single body ending in a line end", "один", "Здравствуйте!\nВторая строка.\n", ""},
};

class BuiltMessage : public test::ScratchDir {};

TEST_F(BuiltMessage, NonAsciiTextsSurviveOurReaderGMimeAndPython) {
  std::vector<std::string> paths;
  for (const TextCase& c : kTexts) {
    SCOPED_TRACE(c.what);
    CkEmail mail;
    mail.put_Subject(c.subject);
    mail.put_From(c.name + "<ivan@example.ru>");
    ASSERT_TRUE(mail.AddMultipleTo("A<a@x.org>;Ölaf B <b@y.org>;c@z.org"));
    ASSERT_TRUE(mail.SetTextBody(c.plain, "text/plain"));
    if (!c.html.empty()) {
      ASSERT_TRUE(mail.SetHtmlBody(c.html));
    }
    mail.AddHeaderField("X-Folder", "Входящие/" + c.name);
    paths.push_back(Path(std::to_string(paths.size()) + ".eml"));
    ASSERT_TRUE(mail.SaveEml(paths.back()));
    ExpectTransportSafe(test::ReadFile(paths.back()));

    CkEmail back;
    ASSERT_TRUE(back.LoadEml(paths.back()));
    EXPECT_EQ(back.Subject(), c.subject);
    EXPECT_EQ(back.GetPlainTextBody(), c.plain);
    EXPECT_EQ(back.GetHtmlBody(), c.html);
    EXPECT_EQ(back.From(), c.name + " <ivan@example.ru>");
    EXPECT_EQ(back.GetHeaderField("x-folder"), "Входящие/" + c.name);
    EXPECT_EQ(test::GMimeSubject(paths.back()), c.subject);
  }
  bool available = false;
  const auto dumps = test::PythonDumps(paths, &available);
  if (!available) GTEST_SKIP() << "python3 not found";
  ASSERT_EQ(dumps.size(), paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const TextCase& c = kTexts[i];
    std::vector<std::string> expected = {"subject\t" + Hex(c.subject), "from\t" + Hex(c.name) + "\tivan@example.ru",
                                         "to\t" + Hex("A") + "\ta@x.org", "to\t" + Hex("Ölaf B") + "\tb@y.org",
                                         "to\t\tc@z.org"};
    if (!c.html.empty()) expected.push_back("multipart\tmultipart/alternative");
    expected.push_back("text\ttext/plain\t" + Hex(c.plain));
    if (!c.html.empty()) expected.push_back("text\ttext/html\t" + Hex(c.html));
    expected.push_back("defects\t0");
    EXPECT_EQ(Shape(dumps[i], false), expected) << c.what;
  }
}

TEST_F(BuiltMessage, SenderAndRecipientsFromEveryAcceptedForm) {
  const char* const senders[][4] = {
      // given, shown, name, address
      {"Anna Berg<anna@x.org>", "Anna Berg <anna@x.org>", "Anna Berg", "anna@x.org"},
      {"anna@x.org", "anna@x.org", "", "anna@x.org"},
      {"Åsa Öberg", "Åsa Öberg", "Åsa Öberg", ""},
  };
  for (const auto& [in, shown, name, addr] : senders) {
    CkEmail mail;
    mail.put_From("someone@else.org");
    mail.put_From(in);  // replaces
    CkEmail back;
    ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
    EXPECT_EQ(back.From(), shown) << in;
    EXPECT_EQ(back.FromName(), name) << in;
    EXPECT_EQ(back.FromAddress(), addr) << in;
  }

  CkEmail mail;
  for (const char* empty : {"", " ; ;"}) {
    EXPECT_FALSE(mail.AddMultipleTo(empty));
    EXPECT_FALSE(mail.AddMultipleCC(empty));
    EXPECT_FALSE(mail.AddMultipleBcc(empty));
  }
  ASSERT_TRUE(mail.AddMultipleTo("A<a@x.org>;B <b@y.org>;c@z.org"));
  ASSERT_TRUE(mail.AddMultipleTo("d@w.org"));  // appends
  ASSERT_TRUE(mail.AddMultipleCC("\"Berg, Anna\" <anna@x.org>"));
  ASSERT_TRUE(mail.AddMultipleBcc("hidden@x.org;Nobody Known"));
  CkEmail back;
  ASSERT_TRUE(back.SetFromMimeText(mail.GetMime()));
  ASSERT_EQ(back.NumTo(), 4);
  EXPECT_EQ(back.GetTo(0), "A <a@x.org>");
  EXPECT_EQ(back.GetToAddr(1), "b@y.org");
  EXPECT_EQ(back.GetTo(3), "d@w.org");
  ASSERT_EQ(back.NumCC(), 1);
  EXPECT_EQ(back.GetCC(0), "Berg, Anna <anna@x.org>");
  EXPECT_EQ(back.GetCCAddr(0), "anna@x.org");
  ASSERT_EQ(back.NumBcc(), 2);
  EXPECT_EQ(back.GetBccAddr(0), "hidden@x.org");
  EXPECT_EQ(back.GetBcc(1), "Nobody Known");  // a name without an address
  EXPECT_EQ(back.GetBccAddr(1), "");
}

// The Date is given as local wall-clock time and written with the zone's offset.
TEST_F(BuiltMessage, DatesFromLocalWallTime) {
  if (!std::filesystem::exists("/usr/share/zoneinfo/Europe/Berlin")) GTEST_SKIP() << "no zone files";
  const char* old = std::getenv("TZ");
  const std::string saved = old ? old : "";
  ::setenv("TZ", "Europe/Berlin", 1);
  ::tzset();
  // Wall-clock 2024-07-01 12:00:00 in summer (+0200) and 2024-01-15 12:00:00 in winter (+0100).
  const std::int64_t summerWall = 1719835200, winterWall = 1705320000;
  CkEmail mail;
  std::int64_t seconds = 0;
  mail.put_LocalDate(summerWall);
  EXPECT_TRUE(mail.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, summerWall - 7200);
  EXPECT_EQ(mail.GetHeaderField("Date"), "Mon, 01 Jul 2024 12:00:00 +0200");
  mail.put_LocalDate(winterWall);
  CkEmail back;
  EXPECT_TRUE(back.SetFromMimeText(mail.GetMime()));
  EXPECT_TRUE(back.get_EmailDate(&seconds));
  EXPECT_EQ(seconds, winterWall - 3600);
  EXPECT_EQ(back.GetHeaderField("Date"), "Mon, 15 Jan 2024 12:00:00 +0100");
  if (old) {
    ::setenv("TZ", saved.c_str(), 1);
  } else {
    ::unsetenv("TZ");
  }
  ::tzset();
}

TEST_F(BuiltMessage, StructureIsTheSameWhateverTheOrderOfCalls) {
  const std::string data = Write("data.bin", "\x01\x02\x03");
  const std::vector<std::string> orders = {"pha", "hpa", "aph", "ahp", "pah", "hap"};
  std::vector<std::string> paths;
  for (const std::string& order : orders) {
    CkEmail mail;
    for (char step : order) {
      const bool ok = step == 'p'   ? mail.SetTextBody("plain", "text/plain")
                      : step == 'h' ? mail.SetHtmlBody("<p>html</p>")
                                    : mail.AddFileAttachment(data, "");
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
  for (std::size_t i = 0; i < orders.size(); ++i) {
    EXPECT_EQ(
        Shape(dumps[i], true),
        (std::vector<std::string>{"multipart\tmultipart/mixed", "multipart\tmultipart/alternative", "text\ttext/plain",
                                  "text\ttext/html", "file\tapplication/octet-stream", "defects\t0"}))
        << "calls in order " << orders[i];
  }
}

TEST_F(BuiltMessage, SingleBodiesStayBareAndSettingAgainReplaces) {
  CkEmail mail;
  ASSERT_TRUE(mail.SetTextBody("first", "text/plain"));
  ASSERT_TRUE(mail.SetTextBody("second", "text/plain; format=flowed; charset=koi8-r"));
  EXPECT_EQ(mail.GetPlainTextBody(), "second");
  EXPECT_FALSE(mail.HasHtmlBody());
  EXPECT_EQ(mail.GetHeaderField("Content-Type"), "text/plain; format=flowed; charset=utf-8");

  ASSERT_TRUE(mail.SetHtmlBody("<i>one</i>"));
  ASSERT_TRUE(mail.SetHtmlBody("<i>two</i>"));
  ASSERT_TRUE(mail.AddPlainTextAlternativeBody("third"));
  EXPECT_EQ(mail.GetHtmlBody(), "<i>two</i>");
  EXPECT_EQ(mail.GetPlainTextBody(), "third");
  EXPECT_EQ(mail.NumAttachments(), 0);
  EXPECT_TRUE(mail.GetHeaderField("Content-Type").starts_with("multipart/alternative"));

  ASSERT_TRUE(mail.SetTextBody("<b>via SetTextBody</b>", "text/html"));
  EXPECT_EQ(mail.GetHtmlBody(), "<b>via SetTextBody</b>");
  EXPECT_FALSE(mail.SetTextBody("{}", "application/json"));
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

  // HTML from bytes in a named charset: "<p>Привет</p>" in windows-1251.
  ASSERT_TRUE(mail.put_Charset("koi8-r"));
  ASSERT_TRUE(mail.SetMbHtmlBody("windows-1251", "<p>\xCF\xF0\xE8\xE2\xE5\xF2</p>"));
  EXPECT_NE(mail.GetMime().find("charset=koi8-r"), std::string::npos);
  EXPECT_EQ(mail.GetHtmlBody(), "<p>Привет</p>");
  EXPECT_FALSE(mail.SetMbHtmlBody("no-such-charset", "x"));
}

TEST_F(BuiltMessage, SavingToAnUnwritablePlaceFails) {
  CkEmail mail;
  EXPECT_FALSE(mail.SaveEml(Path("missing-dir/out.eml")));
  EXPECT_FALSE(mail.LoadEml(Path("missing.eml")));
  EXPECT_FALSE(mail.SetFromMimeText(""));
}

}  // namespace
}  // namespace marrow
