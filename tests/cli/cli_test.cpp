// marrow-cli inspect, run as a program.
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
  const std::string command = std::string(MARROW_CLI) + " " + args + " 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  CliRun run{-1, {}};
  if (pipe == nullptr) return run;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) run.out.append(buf, n);
  const int status = ::pclose(pipe);
  run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
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
  fs::path path_;
};

TEST_F(BundledSample, JsonCarriesFormVotesAndFolders) {
  CliRun run = RunCli("inspect " + path_.string() + " --json");
  ASSERT_EQ(run.code, 0) << run.out;
  EXPECT_EQ(run.out.rfind(R"({"isAnsi":0,"isLargePage":0,"cryptMethod":1,"votes":{"none":0,"permute":37,"cyclic":0},"folders":[)", 0), 0u)
      << run.out.substr(0, 200);
  std::regex folder(
      R"re(\{"nodeId":(\d+),"dataBlock":\d+,"subnodeBlock":\d+,"parent":\d+,"messages":(\d+),"name":"[^"]*","containerClass":"[^"]*","itemCount":\d+\})re");
  std::size_t folders = 0, messages = 0;
  for (auto it = std::sregex_iterator(run.out.begin(), run.out.end(), folder); it != std::sregex_iterator(); ++it) {
    ++folders;
    messages += std::stoul((*it)[2]);
  }
  EXPECT_EQ(folders, 37u);
  EXPECT_EQ(messages, 92u);
  EXPECT_NE(run.out.find(R"("nodeId":8546,"dataBlock":302052,"subnodeBlock":302050,"parent":8514,"messages":10,"name":"Deleted Items","containerClass":"IPF.Note","itemCount":10})"),
            std::string::npos);
  EXPECT_NE(run.out.find(R"("parent":290,"messages":0,"name":"","containerClass":"IPF.NOTE","itemCount":0})"), std::string::npos)
      << "the root folder has no name; an absent class reads IPF.NOTE";
}

TEST_F(BundledSample, TextNamesTheFormAndTheVerdict) {
  CliRun run = RunCli("inspect " + path_.string());
  ASSERT_EQ(run.code, 0) << run.out;
  EXPECT_NE(run.out.find("64-bit Unicode, 512-byte pages (version word 0x17)"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("permute (header byte 1); votes: none 0, permute 37, cyclic 0"), std::string::npos);
  EXPECT_NE(run.out.find("Folders:    37, messages in them: 92"), std::string::npos);
  EXPECT_NE(run.out.find("IPF.Note           Deleted Items"), std::string::npos);
}

TEST_F(BundledSample, PropsShowsAMessageAsThePropertyViewDoes) {
  ::setenv("TZ", "UTC", 1);
  CliRun run = RunCli("props " + path_.string() + " 0x213624");
  ASSERT_EQ(run.code, 0) << run.out;
  EXPECT_NE(run.out.find("0x0037001F  PR_SUBJECT"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("UTF-16 Unicode string        first email to saqib"), std::string::npos);
  EXPECT_NE(run.out.find("Windows Filetime (64-bit)    4/28/2011 11:39:15 AM"), std::string::npos);
  EXPECT_NE(run.out.find("PR_SENDER_NAME                           UTF-16 Unicode string        Saqib Razzaq"),
            std::string::npos);
  EXPECT_EQ(run.out.find("0x0E06"), std::string::npos) << "the row the view leaves out";

  const fs::path rtf = path_.string() + ".rtf";
  CliRun json = RunCli("props " + path_.string() + " 0x2139e4 --json --rtf " + rtf.string());
  ASSERT_EQ(json.code, 0) << json.out;
  // The view shows the subject with its marker (0x01 0x01), unstripped.
  EXPECT_NE(json.out.find(R"({"tag":"0x0037001F","name":"PR_SUBJECT","type":"UTF-16 Unicode string","value":"\u0001\u0001test"})"),
            std::string::npos)
      << json.out.substr(0, 300);
  EXPECT_NE(json.out.find(R"("rtfWritten":true)"), std::string::npos);
  std::ifstream in(rtf, std::ios::binary);
  std::string body((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(body.rfind("{\\rtf1\\ansi", 0), 0u);
  EXPECT_EQ(body.substr(body.size() - 2), "}}");
  fs::remove(rtf);

  CliRun missing = RunCli("props " + path_.string() + " 0x7777777");
  EXPECT_EQ(missing.code, 0);
  EXPECT_NE(missing.out.find("is not in the node index"), std::string::npos);
  EXPECT_EQ(RunCli("props " + path_.string()).code, 2);
  EXPECT_EQ(RunCli("props " + path_.string() + " 12abc").code, 2);
}

TEST(InspectCli, ExitCodes) {
  CliRun missing = RunCli("inspect /nonexistent/store.ost");
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.out.find("Unable to open sorce file"), std::string::npos) << missing.out;
  EXPECT_EQ(RunCli("").code, 2);
  EXPECT_EQ(RunCli("inspect").code, 2);
  EXPECT_EQ(RunCli("frobnicate x").code, 2);
  // Anything that opens is inspected, even if it is no store at all.
  EXPECT_EQ(RunCli("inspect " + std::string(MARROW_SOURCE_DIR) + "/README.md").code, 0);
}

}  // namespace
