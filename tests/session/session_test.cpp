// The session over the bundled sample: a pending source parsed when a save
// job reaches it, find across the recovered folders, an item's preview.
#include "session/session.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <gtest/gtest.h>

#include "session/find_items.h"
#include "session/item_preview.h"
#include "session/save_job.h"
#include "tests/support/test_data.h"

namespace marrow {
namespace {

namespace fs = std::filesystem;

// A private copy of the bundled sample: a store opened from disk is locked.
std::string CopySample(const test::TempFolder& dir) {
  const std::string path = dir.Path("Sample.ost");
  fs::copy_file(fs::path(MARROW_SOURCE_DIR) / "samples/aspose_SampleOstFile.ost", path);
  return path;
}

TEST(SessionSave, APendingSourceIsParsedWhenTheJobReachesItAndItsFilesAreWritten) {
  test::TempFolder dir("session-save");
  Session session;
  session.AddSource(CopySample(dir));
  ASSERT_FALSE(session.At(0).IsParsed());

  SaveJob job;
  job.kind = kOutputEml;
  job.destination = dir.Path("out");
  fs::create_directory(job.destination);
  job.folders = {"Root - Mailbox/IPM_SUBTREE/Inbox/sub1"};  // messages 1975 to 1999
  job.AddText(FilterField::kSubject, kFilterExclude, "message 199");
  SaveJobEnd end = RunSaveJob(session, job);
  EXPECT_TRUE(session.At(0).IsParsed());
  EXPECT_TRUE(end.missingFolders.empty());
  ASSERT_EQ(end.saved.stores.size(), 1u);
  EXPECT_EQ(end.saved.stores[0].itemsWritten, 15u);
  std::size_t files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(job.destination)) files += entry.is_regular_file();
  EXPECT_EQ(files, 15u);
  EXPECT_TRUE(fs::is_regular_file(dir.Path("out/Sample.ost/Inbox/sub1/15.eml")));

  // Once every source is parsed, a folder none has stops the job unsaved.
  job.folders = {"Root - Mailbox/IPM_SUBTREE/Inbox", "No/Such/Folder"};
  end = RunSaveJob(session, job);
  EXPECT_EQ(end.missingFolders, std::vector<std::string>{"No/Such/Folder"});
  EXPECT_TRUE(end.saved.stores.empty());
  EXPECT_FALSE(fs::exists(dir.Path("out/Sample.ost(1)")));
}

class ParsedSample : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    dir_ = new test::TempFolder("session-find");
    session_ = new Session;
    session_->AddSource(CopySample(*dir_));
    ASSERT_TRUE(session_->Parse(0).opened);
  }
  static void TearDownTestSuite() {
    delete session_;
    delete dir_;
  }
  static test::TempFolder* dir_;
  static Session* session_;
};
test::TempFolder* ParsedSample::dir_ = nullptr;
Session* ParsedSample::session_ = nullptr;

TEST_F(ParsedSample, FindMatchesEveryFieldAskedForInAnyCase) {
  struct Case {
    FindQuery query;
    std::size_t hits;
    const char* firstFolder;
  };
  const Case cases[] = {
      {{"", "", "first email", ""}, 3, "Root - Mailbox/IPM_SUBTREE/Inbox"},
      {{"", "", "FIRST EMAIL TO", ""}, 2, "Root - Mailbox/IPM_SUBTREE/Inbox"},
      {{"saqib", "", "newsletter", ""}, 5, "Root - Mailbox/IPM_SUBTREE/Inbox"},
      {{"", "administrator", "", ""}, 6, "Root - Mailbox/IPM_SUBTREE/Calendar"},
      {{"rolf", "svenska", "", ""}, 1, nullptr},
      {{"", "", "", "09/20/2011"}, 5, "Root - Mailbox/IPM_SUBTREE/Inbox"},
      {{"administrator", "", "newsletter", ""}, 0, nullptr},
  };
  for (const Case& c : cases) {
    const std::vector<FindHit> hits = FindItems(*session_, c.query);
    SCOPED_TRACE(c.query.from + "|" + c.query.to + "|" + c.query.subject + "|" + c.query.date);
    EXPECT_EQ(hits.size(), c.hits);
    if (c.firstFolder != nullptr && !hits.empty()) {
      EXPECT_EQ(hits[0].folderPath, c.firstFolder);
    }
  }
}

TEST_F(ParsedSample, PreviewGivesTheHeaderBodiesAndAttachmentNames) {
  const ItemRow* item = nullptr;
  const std::vector<FindHit> hits = FindItems(*session_, {"", "", "newsletter copy", ""});
  for (const FindHit& hit : hits) {
    if (hit.item.subject == "newsletter copy" && !hit.item.isLost && item == nullptr) item = &hit.item;
  }
  ASSERT_NE(item, nullptr);
  ItemPreview preview;
  ASSERT_TRUE(ReadItemPreview(session_->At(0), *item, preview));
  EXPECT_EQ(preview.from, "Saqib Razzaq");
  EXPECT_EQ(preview.to, "Saqib Razzaq");
  EXPECT_EQ(preview.date, "Tue 09/20/2011 10:27 AM");
  EXPECT_NE(preview.plainBody.find("newsletter"), std::string::npos) << preview.plainBody.substr(0, 200);
  EXPECT_NE(preview.htmlBody.find("<html"), std::string::npos) << preview.htmlBody.substr(0, 200);
  // The images of the HTML body, in the order the EML export lists them.
  std::vector<std::string> images;
  for (int i = 1; i <= 11; ++i)
    images.push_back((i < 10 ? "image00" : "image0") + std::to_string(i) + (i == 1 ? ".jpg" : ".png"));
  EXPECT_EQ(preview.attachmentNames, images);
}

}  // namespace
}  // namespace marrow
