#pragma once

#include <string>
#include <vector>

namespace marrow::cli {

// Each returns the process exit code.
int RunInspect(const std::vector<std::string>& args);
int RunProps(const std::vector<std::string>& args);
int RunTree(const std::vector<std::string>& args);
int RunList(const std::vector<std::string>& args);
int RunExport(const std::vector<std::string>& args);

}  // namespace marrow::cli
