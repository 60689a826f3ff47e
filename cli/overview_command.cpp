// marrow-cli inspect FILE [--json]
#include <cstdio>
#include <memory>
#include <string>

#include "cli/commands.h"
#include "cli/json_print.h"
#include "session/store_overview.h"

namespace marrow::cli {
namespace {

struct InspectArgs {
  std::string path;
  bool json = false;
};

const char* CryptName(int method) {
  switch (method) {
    case 0: return "none";
    case 1: return "permute";
    case 2: return "cyclic";
    default: return "unknown";
  }
}

void PrintText(const std::string& path, const StoreSummary& s) {
  std::printf("File:       %s (%llu bytes)\n", path.c_str(), static_cast<unsigned long long>(s.fileSize));
  std::printf("Form:       %s, %u-byte pages (version word 0x%02X)\n", s.isAnsi ? "32-bit ANSI" : "64-bit Unicode",
              s.isLargePage ? 4096u : 512u, s.versionWord);
  std::printf("Encoding:   %s (header byte %u); votes: none %lld, permute %lld, cyclic %lld\n",
              CryptName(s.cryptMethod), s.cryptByte, static_cast<long long>(s.noneVotes),
              static_cast<long long>(s.permuteVotes), static_cast<long long>(s.cyclicVotes));
  std::printf("Roots:      node index 0x%llX, block index 0x%llX\n", static_cast<unsigned long long>(s.nodeRootOffset),
              static_cast<unsigned long long>(s.blockRootOffset));
  std::printf("Folders:    %zu, messages in them: %llu\n\n", s.folders.size(),
              static_cast<unsigned long long>(s.TotalMessages()));
  std::printf("%-12s %-12s %-12s %-12s %-8s %-6s %-18s %s\n", "NodeId", "DataBlock", "SubnodeBlock", "Parent",
              "Messages", "Items", "Class", "Name");
  for (const FolderSummary& f : s.folders) {
    const FolderLabel label = LabelOf(f);
    std::printf("0x%-10llX 0x%-10llX 0x%-10llX 0x%-10llX %-8llu %-6u %-18s %s\n",
                static_cast<unsigned long long>(f.row.nodeId), static_cast<unsigned long long>(f.row.dataBlock),
                static_cast<unsigned long long>(f.row.subnodeBlock), static_cast<unsigned long long>(f.row.parent),
                static_cast<unsigned long long>(f.messages), label.itemCount, label.containerClass.c_str(),
                label.name.c_str());
  }
}

void PrintJsonSummary(const StoreSummary& s) {
  Json folders = Json::array();
  for (const FolderSummary& f : s.folders) {
    const FolderLabel label = LabelOf(f);
    folders.push_back({{"nodeId", f.row.nodeId},
                       {"dataBlock", f.row.dataBlock},
                       {"subnodeBlock", f.row.subnodeBlock},
                       {"parent", f.row.parent},
                       {"messages", f.messages},
                       {"name", label.name},
                       {"containerClass", label.containerClass},
                       {"itemCount", label.itemCount}});
  }
  PrintJson({{"isAnsi", s.isAnsi ? 1 : 0},
             {"isLargePage", s.isLargePage ? 1 : 0},
             {"cryptMethod", s.cryptMethod},
             {"votes", {{"none", s.noneVotes}, {"permute", s.permuteVotes}, {"cyclic", s.cyclicVotes}}},
             {"folders", folders},
             {"versionWord", static_cast<unsigned>(s.versionWord)},
             {"cryptByte", static_cast<unsigned>(s.cryptByte)},
             {"fileSize", s.fileSize}});
}

int RunInspect(const InspectArgs& args) {
  StoreSummary summary;
  std::string error;
  if (!InspectStore(args.path, summary, error)) {
    std::fprintf(stderr, "marrow-cli: %s: %s\n", args.path.c_str(), error.c_str());
    return 1;
  }
  if (args.json) {
    PrintJsonSummary(summary);
  } else {
    PrintText(args.path, summary);
  }
  return 0;
}

}  // namespace

Command AddInspect(CLI::App& app) {
  auto args = std::make_shared<InspectArgs>();
  CLI::App* command =
      app.add_subcommand("inspect", "the store's form, its block encoding and the folders of its node index");
  command->add_option("FILE", args->path, "the store file")->required();
  command->add_flag("--json", args->json, "print JSON");
  return {command, [args] { return RunInspect(*args); }};
}

}  // namespace marrow::cli
