// marrow-cli props FILE NODEID [--json] [--rtf OUT]
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "cli/commands.h"
#include "cli/json_print.h"
#include "session/node_properties.h"

namespace marrow::cli {
namespace {

struct PropsArgs {
  std::string path;
  std::string nodeText;
  std::string rtfOut;
  bool json = false;
};

void PrintJsonRows(std::uint64_t nodeId, const NodeProperties& node, const PropsArgs& args, bool rtfWritten) {
  Json rows = Json::array();
  for (const PropertyRow& r : node.rows) {
    rows.push_back({{"tag", r.tag}, {"name", r.name}, {"type", r.type}, {"value", r.value}});
  }
  Json doc = {{"nodeId", nodeId}, {"properties", rows}};
  if (!args.rtfOut.empty()) doc["rtfWritten"] = rtfWritten;
  PrintJson(doc);
}

int RunProps(const PropsArgs& args) {
  // Decimal, 0x hex or 0 octal, as strtoull reads them.
  char* end = nullptr;
  const std::uint64_t nodeId = std::strtoull(args.nodeText.c_str(), &end, 0);
  if (args.nodeText.empty() || *end != '\0') {
    throw CLI::ValidationError("NODEID", "not a number: " + args.nodeText);
  }

  NodeProperties node;
  std::string error;
  if (!ReadNodeProperties(args.path, nodeId, node, error)) {
    std::fprintf(stderr, "marrow-cli: %s: %s\n", args.path.c_str(), error.c_str());
    return 1;
  }
  if (!node.inIndex) {
    std::fprintf(stderr, "marrow-cli: node 0x%llX is not in the node index\n", static_cast<unsigned long long>(nodeId));
  }
  bool rtfWritten = false;
  if (!args.rtfOut.empty()) {
    rtfWritten = WriteNodeRtf(node, args.rtfOut);
    std::fprintf(stderr, rtfWritten ? "RTF body written to %s\n" : "no RTF body written to %s\n", args.rtfOut.c_str());
  }
  if (args.json) {
    PrintJsonRows(nodeId, node, args, rtfWritten);
  } else {
    for (const PropertyRow& r : node.rows) {
      std::printf("%s  %-40s %-28s %s\n", r.tag.c_str(), r.name.c_str(), r.type.c_str(), r.value.c_str());
    }
  }
  return 0;
}

}  // namespace

Command AddProps(CLI::App& app) {
  auto args = std::make_shared<PropsArgs>();
  CLI::App* command =
      app.add_subcommand("props", "the properties of one node, as the advanced property view shows them");
  command->add_option("FILE", args->path, "the store file")->required();
  command->add_option("NODEID", args->nodeText, "the node, decimal or 0x hex")->required();
  command->add_flag("--json", args->json, "print JSON");
  command->add_option("--rtf", args->rtfOut, "write the node's compressed RTF body, decompressed, to this file")
      ->option_text("OUT");
  return {command, [args] { return RunProps(*args); }};
}

}  // namespace marrow::cli
