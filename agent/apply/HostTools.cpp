#include "agent/apply/HostTools.h"

#include <unistd.h>

#include <filesystem>
#include <sstream>

namespace Agent {

const std::vector<std::string> hostTools = {"iptables", "ip6tables", "arptables"};

namespace {

std::string canonical(const std::string& folder) {
  std::error_code ec;
  return std::filesystem::weakly_canonical(folder.empty() ? "." : folder, ec).string();
}

}  // namespace

std::string findOnPath(const std::string& tool, const std::string& path, const std::string& skip) {
  const std::string skipped = skip.empty() ? "" : canonical(skip);
  std::istringstream folders(path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (!skipped.empty() && canonical(folder) == skipped) continue;
    const std::string file = (folder.empty() ? "." : folder) + "/" + tool;
    std::error_code ec;
    if (std::filesystem::is_regular_file(file, ec) && ::access(file.c_str(), X_OK) == 0)
      return file;
  }
  return {};
}

std::vector<std::string> missingTools(const std::vector<std::string>& tools,
                                      const std::string& path, const std::string& skip) {
  std::vector<std::string> missing;
  for (const std::string& t : tools)
    if (findOnPath(t, path, skip).empty()) missing.push_back(t);
  return missing;
}

}  // namespace Agent
