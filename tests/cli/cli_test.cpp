// marrow-cli inspect and props, run as a program.
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

struct CliRun {
  int code;
  std::string out;
};

CliRun RunCli(const std::string& args) {
  FILE* pipe = ::popen((std::string(MARROW_CLI) + " " + args + " 2>&1").c_str(), "r");
  CliRun run{-1, {}};
  if (pipe == nullptr) return run;
  char buf[4096];
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, pipe)) > 0;) run.out.append(buf, n);
  const int status = ::pclose(pipe);
  run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

// A run that succeeded and printed each of `texts`.
void ExpectOutput(const CliRun& run, std::initializer_list<const char*> texts) {
  EXPECT_EQ(run.code, 0) << run.out;
  for (const char* text : texts) EXPECT_NE(run.out.find(text), std::string::npos) << text;
}

// A private copy of the bundled sample: the CLI holds a store exclusively.
class BundledSample : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = fs::temp_directory_path() / ("marrow-cli-" + std::to_string(::getpid()) + ".ost");
    fs::copy_file(fs::path(MARROW_SOURCE_DIR) / "samples/aspose_SampleOstFile.ost", path_,
                  fs::copy_options::overwrite_existing);
  }
  void TearDown() override { fs::remove(path_); }
  std::string Args(const std::string& command, const std::string& args = "") {
    return command + " " + path_.string() + args;
  }
  fs::path path_;
};

TEST_F(BundledSample, InspectNamesTheFormVotesAndFoldersInTextAndJson) {
  ExpectOutput(RunCli(Args("inspect")), {"64-bit Unicode, 512-byte pages (version word 0x17)",
                                         "permute (header byte 1); votes: none 0, permute 37, cyclic 0",
                                         "Folders:    37, messages in them: 92", "IPF.Note           Deleted Items"});

  const CliRun json = RunCli(Args("inspect", " --json"));
  ASSERT_EQ(json.code, 0) << json.out;
  EXPECT_TRUE(json.out.starts_with(
      R"({"isAnsi":0,"isLargePage":0,"cryptMethod":1,"votes":{"none":0,"permute":37,"cyclic":0},"folders":[)"))
      << json.out.substr(0, 200);
  const std::regex folder(
      R"re(\{"nodeId":(\d+),"dataBlock":\d+,"subnodeBlock":\d+,"parent":\d+,"messages":(\d+),"name":"[^"]*","containerClass":"[^"]*","itemCount":\d+\})re");
  std::size_t folders = 0, messages = 0;
  for (auto it = std::sregex_iterator(json.out.begin(), json.out.end(), folder); it != std::sregex_iterator(); ++it) {
    ++folders;
    messages += std::stoul((*it)[2]);
  }
  EXPECT_EQ(folders, 37u);
  EXPECT_EQ(messages, 92u);
  ExpectOutput(
      json,
      {R"("nodeId":8546,"dataBlock":302052,"subnodeBlock":302050,"parent":8514,"messages":10,"name":"Deleted Items","containerClass":"IPF.Note","itemCount":10})",
       // The root folder has no name; an absent class reads IPF.NOTE.
       R"("parent":290,"messages":0,"name":"","containerClass":"IPF.NOTE","itemCount":0})"});
}

TEST_F(BundledSample, PropsShowsAMessageAsThePropertyViewDoes) {
  ::setenv("TZ", "UTC", 1);
  const CliRun text = RunCli(Args("props", " 0x213624"));
  ExpectOutput(text, {"0x0037001F  PR_SUBJECT", "UTF-16 Unicode string        first email to saqib",
                      "Windows Filetime (64-bit)    4/28/2011 11:39:15 AM",
                      "PR_SENDER_NAME                           UTF-16 Unicode string        Saqib Razzaq"});
  EXPECT_EQ(text.out.find("0x0E06"), std::string::npos) << "the row the view leaves out";

  // The JSON view shows the subject with its marker (0x01 0x01), unstripped.
  const std::string rtf = path_.string() + ".rtf";
  ExpectOutput(RunCli(Args("props", " 0x2139e4 --json --rtf " + rtf)),
               {R"({"tag":"0x0037001F","name":"PR_SUBJECT","type":"UTF-16 Unicode string","value":"\u0001\u0001test"})",
                R"("rtfWritten":true)"});
  std::ifstream in(rtf, std::ios::binary);
  const std::string body((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_TRUE(body.starts_with("{\\rtf1\\ansi") && body.ends_with("}}")) << body.substr(0, 40);
  fs::remove(rtf);

  ExpectOutput(RunCli(Args("props", " 0x7777777")), {"is not in the node index"});
  EXPECT_EQ(RunCli(Args("props")).code, 2);
  EXPECT_EQ(RunCli(Args("props", " 12abc")).code, 2);
}

TEST(InspectCli, ExitCodes) {
  const CliRun missing = RunCli("inspect /nonexistent/store.ost");
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.out.find("Unable to open sorce file"), std::string::npos) << missing.out;
  for (const char* args : {"", "inspect", "frobnicate x"}) EXPECT_EQ(RunCli(args).code, 2) << args;
  // Anything that opens is inspected, even if it is no store at all.
  EXPECT_EQ(RunCli("inspect " + std::string(MARROW_SOURCE_DIR) + "/README.md").code, 0);
}

}  // namespace
