#include "agent/arptables/ArptablesDialect.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>

namespace Agent {

std::optional<ArptablesDialect> arptablesDialect(std::string_view text) {
  if (text == "auto") return ArptablesDialect::automatic;
  if (text == "native") return ArptablesDialect::native;
  if (text == "stock") return ArptablesDialect::stock;
  return std::nullopt;
}

std::string adapterFolder() {
  std::error_code ec;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  const std::filesystem::path folder = exe.parent_path() / ".." / "libexec" / "acl-agent";
  return std::filesystem::weakly_canonical(folder, ec).string();
}

bool doChooseArptablesDialect(ArptablesDialect choice, const std::function<bool()>& probe) {
  const char* const head = "acl-agent: arptables: ";
  std::string why = "as asked";
  if (choice == ArptablesDialect::automatic) {
    const bool accepted = probe();
    choice = accepted ? ArptablesDialect::native : ArptablesDialect::stock;
    why = accepted ? "the host's arptables lists chain OUT"
                   : "the host's arptables refused `arptables -L OUT`";
  }
  if (choice == ArptablesDialect::native) {
    std::cerr << head << "native (" << why << ")\n";
    return true;
  }
  const std::string folder = adapterFolder();
  if (::access((folder + "/arptables").c_str(), X_OK) != 0) {
    std::cerr << head << "stock needed (" << why << "), but there is no adapter at " << folder
              << "/arptables\n";
    return false;
  }
  const char* path = std::getenv("PATH");
  ::setenv("PATH", (folder + ":" + (path ? path : "/usr/sbin:/usr/bin:/sbin:/bin")).c_str(), 1);
  std::cerr << head << "stock (" << why << "), through the adapter " << folder << "/arptables\n";
  return true;
}

}  // namespace Agent
