// marrow-cli: the command-line front end over the store reader.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace {

void Usage() {
  std::fprintf(stderr,
               "usage: marrow-cli inspect FILE [--json]\n"
               "       marrow-cli props FILE NODEID [--json] [--rtf OUT]\n"
               "       marrow-cli tree FILE [--mode quick|advance|raw] [--json] [--save-snapshot F]\n"
               "                            [--snapshot F]\n"
               "       marrow-cli list FILE FOLDERPATH [--json] [--mode quick|advance|raw] [--snapshot F]\n"
               "       marrow-cli export FILE --to eml|mbox --out DIR [--folder PATH]... [options]\n"
               "\n"
               "  inspect   the store's form, its block encoding and the folders of its node index\n"
               "  props     the properties of one node, as the advanced property view shows them;\n"
               "            --rtf writes its compressed RTF body, decompressed, to OUT\n"
               "  tree      recovers the folder tree, lost items and orphan folders; --snapshot\n"
               "            reloads a saved scan instead of scanning, --save-snapshot keeps this one\n"
               "  list      the item list of one folder of the recovered tree, by the path tree prints\n"
               "  export    saves the recovered folders (all, or those named) as EML files or MBOX files;\n"
               "            marrow-cli export --help lists the filters\n");
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "-h" || args[0] == "--help") {
    Usage();
    return args.empty() ? 2 : 0;
  }
  const std::string command = args[0];
  args.erase(args.begin());
  if (command == "inspect") return marrow::cli::RunInspect(args);
  if (command == "props") return marrow::cli::RunProps(args);
  if (command == "tree") return marrow::cli::RunTree(args);
  if (command == "list") return marrow::cli::RunList(args);
  if (command == "export") return marrow::cli::RunExport(args);
  std::fprintf(stderr, "marrow-cli: unknown command \"%s\"\n", command.c_str());
  Usage();
  return 2;
}
