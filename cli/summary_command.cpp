// marrow-cli inspect FILE [--json]
#include <cstdio>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/json_writer.h"
#include "store/store_summary.h"

namespace marrow::cli {
namespace {

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
  std::printf("Form:       %s, %u-byte pages (version word 0x%02X)\n",
              s.isAnsi ? "32-bit ANSI" : "64-bit Unicode", s.isLargePage ? 4096u : 512u,
              s.versionWord);
  std::printf("Encoding:   %s (header byte %u); votes: none %lld, permute %lld, cyclic %lld\n",
              CryptName(s.cryptMethod), s.cryptByte, static_cast<long long>(s.noneVotes),
              static_cast<long long>(s.permuteVotes), static_cast<long long>(s.cyclicVotes));
  std::printf("Roots:      node index 0x%llX, block index 0x%llX\n",
              static_cast<unsigned long long>(s.nodeRootOffset),
              static_cast<unsigned long long>(s.blockRootOffset));
  std::printf("Folders:    %zu, messages in them: %llu\n\n", s.folders.size(),
              static_cast<unsigned long long>(s.TotalMessages()));
  std::printf("%-12s %-12s %-12s %-12s %s\n", "NodeId", "DataBlock", "SubnodeBlock", "Parent",
              "Messages");
  for (const FolderSummary& f : s.folders) {
    std::printf("0x%-10llX 0x%-10llX 0x%-10llX 0x%-10llX %llu\n",
                static_cast<unsigned long long>(f.row.nodeId),
                static_cast<unsigned long long>(f.row.dataBlock),
                static_cast<unsigned long long>(f.row.subnodeBlock),
                static_cast<unsigned long long>(f.row.parent),
                static_cast<unsigned long long>(f.messages));
  }
}

void PrintJson(const StoreSummary& s) {
  JsonWriter w;
  w.BeginObject();
  w.Key("isAnsi");
  w.Value(s.isAnsi ? 1 : 0);
  w.Key("isLargePage");
  w.Value(s.isLargePage ? 1 : 0);
  w.Key("cryptMethod");
  w.Value(s.cryptMethod);
  w.Key("votes");
  w.BeginObject();
  w.Key("none");
  w.Value(s.noneVotes);
  w.Key("permute");
  w.Value(s.permuteVotes);
  w.Key("cyclic");
  w.Value(s.cyclicVotes);
  w.EndObject();
  w.Key("folders");
  w.BeginArray();
  for (const FolderSummary& f : s.folders) {
    w.BeginObject();
    w.Key("nodeId");
    w.Value(f.row.nodeId);
    w.Key("dataBlock");
    w.Value(f.row.dataBlock);
    w.Key("subnodeBlock");
    w.Value(f.row.subnodeBlock);
    w.Key("parent");
    w.Value(f.row.parent);
    w.Key("messages");
    w.Value(f.messages);
    w.EndObject();
  }
  w.EndArray();
  w.Key("versionWord");
  w.Value(static_cast<unsigned>(s.versionWord));
  w.Key("cryptByte");
  w.Value(static_cast<unsigned>(s.cryptByte));
  w.Key("fileSize");
  w.Value(s.fileSize);
  w.EndObject();
  std::printf("%s\n", w.Text().c_str());
}

}  // namespace

int RunInspect(const std::vector<std::string>& args) {
  std::string path;
  bool json = false;
  for (const std::string& a : args) {
    if (a == "--json") {
      json = true;
    } else if (path.empty() && (a.empty() || a[0] != '-')) {
      path = a;
    } else {
      std::fprintf(stderr, "usage: marrow-cli inspect FILE [--json]\n");
      return 2;
    }
  }
  if (path.empty()) {
    std::fprintf(stderr, "usage: marrow-cli inspect FILE [--json]\n");
    return 2;
  }
  StoreReader reader;
  if (!reader.OpenStore(path)) {
    std::fprintf(stderr, "marrow-cli: %s: %s\n", path.c_str(), reader.LastError().c_str());
    return 1;
  }
  StoreSummary summary = SummarizeStore(reader);
  if (json) {
    PrintJson(summary);
  } else {
    PrintText(path, summary);
  }
  return 0;
}

}  // namespace marrow::cli
