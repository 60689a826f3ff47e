// marrow-cli export FILE... --to eml|mbox --out DIR [--folder PATH]... [--mode quick|advance|raw]
//   [--deleted all|exclude|only] [--from|--to|--subject|--folder-name include|exclude TEXT]...
//   [--type include|exclude LABEL]... [--dates [include|exclude] FIRST..SECOND]... [--snapshot F]
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/source_options.h"
#include "session/save_job.h"

namespace marrow::cli {
namespace {

bool IsFilterMode(const std::string& word) {
  return word == "include" || word == "exclude";
}

struct ExportArgs {
  SourceArgs source;
  std::vector<std::string> paths;
  std::string to, out, deleted = "all";
  std::vector<std::string> folders;
  // Pairs of mode and value, in the order given.
  std::vector<std::string> from, toFilter, subject, folderName, type, dates;
};

// The job the arguments describe; throws for a filter that does not parse.
SaveJob JobOf(const ExportArgs& args) {
  SaveJob job;
  job.kind = args.to == "eml" ? kOutputEml : kOutputMbox;
  job.destination = args.out;
  job.folders = args.folders;
  job.deleted = args.deleted == "all" ? 1 : args.deleted == "exclude" ? 2 : 3;
  auto modeOf = [](const std::string& option, const std::string& word) {
    if (!IsFilterMode(word)) throw CLI::ValidationError(option, "include or exclude, not " + word);
    return word == "include" ? kFilterInclude : kFilterExclude;
  };
  const std::pair<const char*, const std::vector<std::string>*> fields[] = {{"--from", &args.from},
                                                                            {"--to", &args.toFilter},
                                                                            {"--subject", &args.subject},
                                                                            {"--folder-name", &args.folderName},
                                                                            {"--type", &args.type}};
  const FilterField fieldOf[] = {FilterField::kFrom, FilterField::kTo, FilterField::kSubject, FilterField::kFolderName,
                                 FilterField::kItemType};
  auto pairsOf = [](const char* option, const std::vector<std::string>& values) {
    if (values.size() % 2 != 0) throw CLI::ValidationError(option, "takes include|exclude and a value");
  };
  for (std::size_t f = 0; f < std::size(fields); ++f) {
    const auto& [option, values] = fields[f];
    pairsOf(option, *values);
    for (std::size_t i = 0; i + 1 < values->size(); i += 2) {
      job.AddText(fieldOf[f], modeOf(option, (*values)[i]), (*values)[i + 1]);
    }
  }
  pairsOf("--dates", args.dates);
  for (std::size_t i = 0; i + 1 < args.dates.size(); i += 2) {
    const std::string& range = args.dates[i + 1];
    const std::size_t dots = range.find("..");
    if (dots == std::string::npos ||
        !job.AddDays(modeOf("--dates", args.dates[i]), range.substr(0, dots), range.substr(dots + 2))) {
      throw CLI::ValidationError("--dates", "not YYYY-MM-DD..YYYY-MM-DD: " + range);
    }
  }
  return job;
}

int RunExport(const ExportArgs& args) {
  std::vector<std::string> paths = args.paths;
  if (paths.empty() && !args.source.snapshot.empty()) paths.push_back("");  // the snapshot names its source
  if (paths.empty()) throw CLI::ValidationError("FILE", "a store file or --snapshot is required");
  if (paths.size() > 1 && !args.source.snapshot.empty()) {
    throw CLI::ValidationError("--snapshot", "a snapshot belongs to one store");
  }
  const SaveJob job = JobOf(args);
  std::error_code ec;
  if (!std::filesystem::is_directory(job.destination, ec)) {
    std::fprintf(stderr, "marrow-cli: the output folder %s does not exist\n", job.destination.c_str());
    return 1;
  }

  // Every store is recovered first, as the program has them all open when
  // the save starts; then all are saved in the order given.
  StderrProgress progress;
  Session session(&progress);
  for (const std::string& path : paths) {
    SourceArgs source = args.source;
    source.path = path;
    if (!OpenSource(session, source, progress)) return 1;
  }
  const SaveJobEnd end = RunSaveJob(session, job);
  if (!end.missingFolders.empty()) {
    std::fprintf(stderr, "marrow-cli: no folder \"%s\" in the recovered tree (see marrow-cli tree)\n",
                 end.missingFolders.front().c_str());
    return 1;
  }
  int status = end.saved.cancelled ? 1 : 0;
  for (const SaveEnd& one : end.saved.stores) {
    if (one.failed) {
      std::printf("%s\n", one.message.c_str());
      status = 1;
    } else if (!one.cancelled) {
      std::printf("%u item(s) saved at %s\n", one.itemsWritten, one.destination.c_str());
    }
  }
  if (!end.saved.text.empty()) std::printf("%s\n", end.saved.text.c_str());
  return status;
}

// An option given any number of times, each time with `count` values.
CLI::Option* Repeated(CLI::App& command, const std::string& name, std::vector<std::string>& values, int count,
                      const std::string& text, const std::string& description) {
  return command.add_option(name, values, description)
      ->expected(count)
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->option_text(text);
}

}  // namespace

void NormaliseExportArgs(std::vector<std::string>& args) {
  for (std::size_t i = 0; i + 1 < args.size(); ++i) {
    if (args[i] == "--to" && IsFilterMode(args[i + 1])) {
      args[i] = "--to-filter";
    } else if (args[i] == "--dates" && !IsFilterMode(args[i + 1])) {
      args.insert(args.begin() + static_cast<std::ptrdiff_t>(i) + 1, "include");
    }
  }
}

Command AddExport(CLI::App& app) {
  auto args = std::make_shared<ExportArgs>();
  CLI::App* command =
      app.add_subcommand("export", "saves the recovered folders (all, or those named) as EML files or MBOX files");
  command->add_option("FILE", args->paths, "the store files, saved in this order");
  command->add_option("--to", args->to, "the output; with include|exclude TEXT, the To filter")
      ->required()
      ->check(CLI::IsMember({"eml", "mbox"}))
      ->option_text("eml|mbox");
  command->add_option("--out", args->out, "the output folder")->required()->option_text("DIR");
  Repeated(*command, "--folder", args->folders, 1, "PATH", "a folder and all below it, as tree prints its path");
  AddSourceOptions(*command, args->source);
  command->add_option("--deleted", args->deleted, "lost items: with the others (all), left out, or alone")
      ->check(CLI::IsMember({"all", "exclude", "only"}))
      ->option_text("all|exclude|only");
  Repeated(*command, "--from", args->from, 2, "include|exclude TEXT", "filter on the sender");
  Repeated(*command, "--to-filter", args->toFilter, 2, "include|exclude TEXT", "")->group("");
  Repeated(*command, "--subject", args->subject, 2, "include|exclude TEXT", "filter on the subject");
  Repeated(*command, "--folder-name", args->folderName, 2, "include|exclude TEXT", "filter on a folder's own name");
  Repeated(*command, "--type", args->type, 2, "include|exclude LABEL",
           "filter on the item type: Email, Contacts, Task, Calendar, Journal, Notes, Distribution List");
  Repeated(*command, "--dates", args->dates, 2, "[include|exclude] YYYY-MM-DD..YYYY-MM-DD",
           "filter on the date, both days whole");
  return {command, [args] { return RunExport(*args); }};
}

}  // namespace marrow::cli
