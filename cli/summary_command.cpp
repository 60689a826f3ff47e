// marrow-cli inspect FILE [--json]
#include <cstdio>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/json_writer.h"
#include "content/property_values.h"
#include "store/store_summary.h"

namespace marrow::cli {
namespace {

// What the folder tree shows of a folder: its name, class and item count.
struct FolderText {
  std::string name, containerClass;
  std::uint32_t itemCount;
};

FolderText Describe(const FolderSummary& f) {
  FolderText t{GetString(f.properties, 0x3001, false), GetString(f.properties, 0x3613, false),
               GetU32(f.properties, 0x3602)};
  if (t.containerClass.empty()) t.containerClass = "IPF.NOTE";
  return t;
}

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
  std::printf("%-12s %-12s %-12s %-12s %-8s %-6s %-18s %s\n", "NodeId", "DataBlock", "SubnodeBlock",
              "Parent", "Messages", "Items", "Class", "Name");
  for (const FolderSummary& f : s.folders) {
    const FolderText t = Describe(f);
    std::printf("0x%-10llX 0x%-10llX 0x%-10llX 0x%-10llX %-8llu %-6u %-18s %s\n",
                static_cast<unsigned long long>(f.row.nodeId),
                static_cast<unsigned long long>(f.row.dataBlock),
                static_cast<unsigned long long>(f.row.subnodeBlock),
                static_cast<unsigned long long>(f.row.parent),
                static_cast<unsigned long long>(f.messages), t.itemCount, t.containerClass.c_str(),
                t.name.c_str());
  }
}

void PrintJson(const StoreSummary& s) {
  JsonWriter w;
  w.BeginObject();
  w.Member("isAnsi", s.isAnsi ? 1 : 0);
  w.Member("isLargePage", s.isLargePage ? 1 : 0);
  w.Member("cryptMethod", s.cryptMethod);
  w.Key("votes");
  w.BeginObject();
  w.Member("none", s.noneVotes);
  w.Member("permute", s.permuteVotes);
  w.Member("cyclic", s.cyclicVotes);
  w.EndObject();
  w.Key("folders");
  w.BeginArray();
  for (const FolderSummary& f : s.folders) {
    w.BeginObject();
    w.Member("nodeId", f.row.nodeId);
    w.Member("dataBlock", f.row.dataBlock);
    w.Member("subnodeBlock", f.row.subnodeBlock);
    w.Member("parent", f.row.parent);
    w.Member("messages", f.messages);
    const FolderText t = Describe(f);
    w.Member("name", t.name);
    w.Member("containerClass", t.containerClass);
    w.Member("itemCount", t.itemCount);
    w.EndObject();
  }
  w.EndArray();
  w.Member("versionWord", static_cast<unsigned>(s.versionWord));
  w.Member("cryptByte", static_cast<unsigned>(s.cryptByte));
  w.Member("fileSize", s.fileSize);
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
